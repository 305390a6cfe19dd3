#include "fuzz/operations/Model.h"

#include <algorithm>
#include <utility>

#include "fuzz/Require.h"

namespace operations {

PoolModel* Model::find(const char* name) const {
  const auto found = std::find_if(pools_.begin(), pools_.end(),
                                  [&](const auto& pool) { return name != nullptr && pool->name() == name; });
  return found == pools_.end() ? nullptr : found->get();
}

void Model::create(const char* name) {
  if (name != nullptr) {
    pools_.push_back(std::make_unique<PoolModel>(name));
  }
}

void Model::destroy(const char* name) {
  if (const PoolModel* pool = find(name)) {
    const auto position =
        std::find_if(pools_.begin(), pools_.end(), [&](const auto& other) { return other.get() == pool; });
    destroyed_.push_back(std::move(*position));
    pools_.erase(position);
  }
}

std::unique_ptr<PoolModel> Model::takeFirst() {
  std::unique_ptr<PoolModel> first = std::move(pools_.front());
  pools_.erase(pools_.begin());
  return first;
}

bool Model::mayNotify(const char* pool, const char* task) const {
  const auto may = [&](const auto& other) {
    return other->name() == pool && other->isNotified() && other->find(task) != nullptr;
  };
  return std::any_of(pools_.begin(), pools_.end(), may) ||
         std::any_of(destroyed_.begin(), destroyed_.end(), may);
}

void Model::checkSnapshot(const Json::Value& snapshot) const {
  require(snapshot.isArray() && snapshot.size() == pools_.size());
  for (Json::ArrayIndex i = 0; i < snapshot.size(); ++i) {
    require(snapshot[i]["poolName"].asString() == pools_[i]->name());
    pools_[i]->checkList(snapshot[i]["taskList"]);
  }
}

}  // namespace operations
