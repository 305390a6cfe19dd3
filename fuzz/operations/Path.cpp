#include "fuzz/operations/Path.h"

#include <algorithm>

#include "fuzz/Require.h"
#include "fuzz/operations/ScriptedServer.h"

namespace operations {

const Path* Path::ofUrl(const std::string& url) {
  const auto found = std::find_if(kPaths.begin(), kPaths.end(), [&](const Path& path) {
    return url == ScriptedServer::shared().url(path.path);
  });
  return found == kPaths.end() ? nullptr : &*found;
}

void Path::check(ZEP_HTTP_TASK_STATUS ended, std::string_view answer, std::string_view file) const {
  if (!failure.empty() && ended == ZEP_HTTP_TASK_FAILED) {
    require(answer == failure);
    return;
  }
  require(ended == status);
  require(answer == (ended == ZEP_HTTP_TASK_DONE && !file.empty() ? file : result));
}

}  // namespace operations
