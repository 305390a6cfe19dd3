// The fifteen functions in any order, as the bytes of the input say, against a server in the process itself; also from
// inside the notify function, and with the run loop turned there. A model of pools, tasks and properties is kept
// beside the library and tells what it has to answer.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "fuzz/Input.h"
#include "fuzz/operations/DownloadFolder.h"
#include "fuzz/operations/Host.h"
#include "fuzz/operations/SignIn.h"

namespace {

/// What all inputs share.
const operations::DownloadFolder& surroundings() {
  static const operations::DownloadFolder& folder = []() -> const operations::DownloadFolder& {
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY",
                             "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"}) {
      unsetenv(name);
    }
    setenv("ZEP_URL_TIMEOUT_MS", "300", 1);
    operations::SignIn::shared();
    static const operations::DownloadFolder made;
    return made;
  }();
  return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  operations::Host(textOf(data, size), surroundings()).run();
  return 0;
}
