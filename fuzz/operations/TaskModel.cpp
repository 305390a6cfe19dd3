#include "fuzz/operations/TaskModel.h"

#include <cstddef>

#include "fuzz/Require.h"

namespace operations {

namespace {

/// Header fields with which the scripted server answers the same.
bool isPlain(const std::string& header) {
  return header.empty() || header == R"({"HttpMethonGet":"1"})" ||
         header == R"({"HttpMethod":"PUT","X":"y"})";
}

}  // namespace

void TaskModel::setText(int property, const std::string& text) {
  properties_.at(static_cast<std::size_t>(property)) = text;
}

void TaskModel::run(ZEP_HTTP_TASK_STATUS status) {
  ++runs_;
  path_ = nullptr;
  file_ = properties_[ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE];
  require(status == ZEP_HTTP_TASK_STATUS_8 || status == ZEP_HTTP_TASK_REQUESTING ||
          status == ZEP_HTTP_TASK_FAILED);
  if (runs_ == 1 && isPlain(properties_[ZEP_HTTP_TASK_PROP_HEADER_FIELDS]) && (file_.empty() || !hadData_)) {
    path_ = Path::ofUrl(properties_[ZEP_HTTP_TASK_PROP_URL]);
    require(path_ == nullptr || status != ZEP_HTTP_TASK_FAILED);
  }
}

void TaskModel::reset() {
  runs_ = 0;
  path_ = nullptr;
}

bool TaskModel::mayHave(ZEP_HTTP_TASK_STATUS status) const {
  if (!hasRun()) {
    return status == ZEP_HTTP_TASK_UNINITIALIZED;
  }
  return status == ZEP_HTTP_TASK_REQUESTING || status == ZEP_HTTP_TASK_DONE ||
         status == ZEP_HTTP_TASK_FAILED || status == ZEP_HTTP_TASK_REDIRECTED;
}

bool TaskModel::mayHave(int property, const std::string& text) const {
  if (property < 1 || property > 10) {
    return text.empty();
  }
  return property == ZEP_HTTP_TASK_PROP_RESULT || property == ZEP_HTTP_TASK_PROP_REDIRECT_URL ||
         text == properties_.at(static_cast<std::size_t>(property));
}

}  // namespace operations
