// zep-trust-panel: shows a server's certificate to the user and tells whether he wants to go on.
//
// Reads one line from its standard input, the request: the text of a JSON object (ZEP_Foundation.h,
// ZEP_TrustPanelRunner) of at most 1 MB. Keeps the panel open for as long as nobody has answered it and the
// input has not ended: whoever asks holds it open.
//
// Exit status 0, and "confirmed" with a line feed on the standard output: the user confirmed.
//             1: he declined, or closed the panel, or the input ended.
//             2: the panel cannot be shown: no display, a malformed request. The reason is on the error output.

#include <glib-unix.h>
#include <gtk/gtk.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <optional>
#include <string>

#include "CertificateChain.h"
#include "PanelWindow.h"
#include "RequestLine.h"
#include "foundation/panel/PanelRequest.h"

namespace {

enum ExitStatus { Confirmed = 0, Declined = 1, CannotShow = 2 };

int cannotShow(const char* reason) {
  std::fprintf(stderr, "zep-trust-panel: %s\n", reason);
  return CannotShow;
}

gboolean onInput(gint descriptor, GIOCondition, gpointer panel) {
  std::array<char, 256> dropped;
  if (read(descriptor, dropped.data(), dropped.size()) > 0) {
    return G_SOURCE_CONTINUE;
  }
  static_cast<PanelWindow*>(panel)->close();
  return G_SOURCE_REMOVE;
}

int show(const foundation::PanelRequest& request, const CertificateChain& chain) {
  constexpr std::string_view kConfirmation = "confirmed\n";
  PanelWindow panel(request, chain);
  g_unix_fd_add(STDIN_FILENO, G_IO_IN, onInput, &panel);
  if (!panel.run()) {
    return Declined;
  }
  const ssize_t written = write(STDOUT_FILENO, kConfirmation.data(), kConfirmation.size());
  return written == static_cast<ssize_t>(kConfirmation.size()) ? Confirmed : Declined;
}

}  // namespace

int main(int argc, char**) {
  // The end of the input tells the same, but not while a fork of the asking program holds it open.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGPIPE, SIG_IGN);
  if (argc > 1) {
    return cannotShow("takes no arguments, but a request on its standard input");
  }
  const auto line = readRequestLine(STDIN_FILENO, foundation::kLongestPanelRequest);
  const auto request = line ? foundation::panelRequestFromJsonText(*line) : std::nullopt;
  const auto chain = request ? CertificateChain::fromPem(request->certificates) : std::nullopt;
  if (!chain) {
    return cannotShow("the request is malformed");
  }
  if (!gtk_init_check(nullptr, nullptr)) {
    return cannotShow("there is no display");
  }
  return show(*request, *chain);
}
