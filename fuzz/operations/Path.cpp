#include "fuzz/operations/Path.h"

#include <algorithm>
#include <string_view>

#include "fuzz/Require.h"
#include "fuzz/operations/ScriptedServer.h"

namespace operations {

const Path* Path::ofUrl(const std::string& url) {
  const auto found = std::find_if(kPaths.begin(), kPaths.end(), [&](const Path& path) {
    return url == ScriptedServer::shared().url(path.path);
  });
  return found == kPaths.end() ? nullptr : &*found;
}

void Path::check(ZEP_HTTP_TASK_STATUS ended, const std::string& answer) const {
  if (answer == kTimedOut) {
    require(ended == ZEP_HTTP_TASK_FAILED);
    return;  // the machine may have had no time for us
  }
  require(ended == status || std::string_view(path) == "/basic");
  require(result == kAnything || answer == result);
}

}  // namespace operations
