#pragma once

// The host of one input: goes through the script, also inside its notify function, and leaves nothing behind. One at a
// time, all of it on one thread.

#include <string_view>

#include "fuzz/operations/DownloadFolder.h"
#include "fuzz/operations/Model.h"
#include "fuzz/operations/Operations.h"
#include "fuzz/operations/Script.h"
#include "httpPool/ZEP_HttpPool.h"

namespace operations {

class Host {
 public:
  Host(std::string_view bytes, const DownloadFolder& folder);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void run();

 private:
  void waitForAll();
  void leave();

  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data);

  static Host* current_;

  Script script_;
  Model model_;
  Operations operations_;
};

}  // namespace operations
