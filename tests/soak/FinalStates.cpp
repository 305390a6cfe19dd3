#include "tests/soak/FinalStates.h"

#include <bitset>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "httpPool/HttpCall.h"

namespace test {
namespace {

constexpr std::string_view kLaunched = "CHttpCallMacImpl::StartDownload, SessionID: ";
constexpr std::string_view kReported = "NotifyHttpCallStatus, sessionID: ";
constexpr std::string_view kStatus = "status";

/// Which calls are running, by the number that is traced of each, its SessionID: the lower half of the call's address,
/// which is a multiple of 16.
std::bitset<(std::uint64_t{1} << 28)> running;
std::size_t reported = 0;
std::size_t surplus = 0;

std::size_t place(const char* number) {
  return static_cast<std::uint32_t>(std::strtoll(number, nullptr, 10)) / 16;
}

bool isFinal(long status) {
  return status != HTTP_CALL_RECEIVING && status != HTTP_CALL_REDIRECTED;
}

/// Both lines are traced on the thread of the host.
void note(std::string_view line) {
  if (line.starts_with(kLaunched)) {
    running.set(place(line.data() + kLaunched.size()));
  } else if (line.starts_with(kReported)) {
    const char* const number = line.data() + kReported.size();
    const std::size_t status = line.find(kStatus, kReported.size());
    if (status == std::string_view::npos ||
        !isFinal(std::strtol(line.data() + status + kStatus.size(), nullptr, 10))) {
      return;
    }
    ++(running.test(place(number)) ? reported : surplus);
    running.reset(place(number));
  }
}

}  // namespace

std::size_t reportedFinalStates() {
  return reported;
}

std::size_t surplusFinalStates() {
  return surplus;
}

}  // namespace test

/// Called by the plug-in with each line.
extern "C" __attribute__((visibility("default"))) void soakTraced(const char* line) {
  test::note(line);
}
