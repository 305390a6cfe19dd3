#pragma once

// The operations of a host, as the script has them: each calls the library, tells the model, and holds what the library
// answers against it. On the host's thread.

#include <string>

#include "fuzz/operations/DownloadFolder.h"
#include "fuzz/operations/Model.h"
#include "fuzz/operations/Script.h"
#include "httpPool/ZEP_HttpPool.h"

namespace operations {

class Operations {
 public:
  /// Pools are told to notify by calling `notify`.
  Operations(Script& script, Model& model, const DownloadFolder& folder, ZEP_HttpPool_NotifyProc notify)
      : script_(script), model_(model), folder_(folder), notify_(notify) {}

  void next();
  /// The next one inside a notification, if the script wants that.
  void reenter();
  void endReentries() { reentries_ = 0; }

 private:
  /// The next pool and task the script names, and what the model has of them.
  struct Named {
    const char* pool;
    const char* task;
    PoolModel* knownPool;
    TaskModel* knownTask;
  };
  const char* poolName();
  Named named();

  void create();
  void destroy();
  void setProc(bool isNotified);
  void addTask();
  void removeTask();
  void clear();
  void runTask();
  void resetTask();
  void setUrl();
  void setHeader();
  void setShortText();
  void setFile();
  void setText(int property, const std::string& value);
  void setData();
  void setIgnored();
  void checkStatus();
  void checkProperty();
  void checkList();
  void checkSnapshot() const;
  void chooseAnswer();
  void turn();
  /// Turns until what runs has ended, so that what follows meets tasks that are done or have failed.
  void settle();
  bool isAnyRunning() const;

  Script& script_;
  Model& model_;
  const DownloadFolder& folder_;
  const ZEP_HttpPool_NotifyProc notify_;
  int runs_ = 0;
  int turned_ = 0;
  int turning_ = 0;
  bool hasSettled_ = false;
  /// So many notifications do something themselves.
  int reentries_ = 0;
};

}  // namespace operations
