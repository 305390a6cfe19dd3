#pragma once

// What the library has to hold and to tell, by what the host has done so far.

#include <json/value.h>

#include <memory>
#include <vector>

#include "fuzz/operations/PoolModel.h"

namespace operations {

class Model {
 public:
  const std::vector<std::unique_ptr<PoolModel>>& pools() const { return pools_; }
  /// The first pool of the name, as in the library; null when there is none.
  PoolModel* find(const char* name) const;

  void create(const char* name);
  void destroy(const char* name);
  std::unique_ptr<PoolModel> takeFirst();
  /// Pools that were destroyed do not notify any more.
  void forgetDestroyed() { destroyed_.clear(); }

  /// There is such a pool, which was told to notify, with such a task.
  bool mayNotify(const char* pool, const char* task) const;
  /// Ends the process when the library's snapshot is another one.
  void checkSnapshot(const Json::Value& snapshot) const;

 private:
  std::vector<std::unique_ptr<PoolModel>> pools_;
  /// Perhaps not deleted yet.
  std::vector<std::unique_ptr<PoolModel>> destroyed_;
};

}  // namespace operations
