// A host with a panel open, asked for by a worker as the library does it. Its request is the file that its argument
// names, else a small one. SIGUSR1 makes it exit at once, in the middle of the panel. SIGUSR2 makes it fork a process
// that does nothing for two minutes, and say its number. Else it ends with the panel and says what was answered.

#include <glib-unix.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "foundation/ZEP_Foundation.h"
#include "foundation/base/Trace.h"
#include "foundation/panel/PanelRequest.h"
#include "foundation/panel/TrustPanelRunner.h"
#include "foundation/runloop/DispatchQueue.h"

namespace {

foundation::PanelRequest requestFrom(int argc, char** argv) {
  if (argc < 2) {
    return {.certificates = {"c"}};
  }
  std::ifstream file(argv[1]);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return foundation::panelRequestFromJsonText(text).value();
}

void print(foundation::TraceLevel, std::string_view text) {
  std::printf("%.*s\n", static_cast<int>(text.size()), text.data());
}

gboolean forkOne(gpointer) {
  constexpr unsigned kSeconds = 120;
  const pid_t child = fork();
  if (child == 0) {
    alarm(kSeconds);
    pause();
    _exit(0);
  }
  std::printf("%d\n", static_cast<int>(child));
  std::fflush(stdout);
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  foundation::setTraceSink(print);
  g_unix_signal_add(
      SIGUSR1, [](gpointer) -> gboolean { std::exit(3); }, nullptr);
  g_unix_signal_add(SIGUSR2, forkOne, nullptr);
  const bool isAsking = foundation::DispatchQueue::global().async([request = requestFrom(argc, argv)] {
    foundation::DispatchQueue::main().sync([&] {
      std::puts(foundation::runPanel(request) ? "confirmed" : "declined");
      ZEP_RunLoop_Stop();
    });
  });
  return isAsking && ZEP_RunLoop_Run(-1) == 1 ? 0 : 1;
}
