#include "foundation/panel/TrustPanelRunner.h"

#include <glib.h>
#include <pthread.h>

#include <mutex>
#include <string>

#include "foundation/base/Trace.h"
#include "foundation/panel/PanelProcess.h"
#include "foundation/panel/PanelProgram.h"
#include "foundation/runloop/RunLoop.h"

namespace foundation {
namespace {

struct HostPanel {
  PanelRunner runner = nullptr;
  void* context = nullptr;
};

constinit std::mutex hostPanelMutex;
HostPanel hostPanel;

/// So that the lock is free in the child of a fork.
[[gnu::constructor]] void handleForks() {
  pthread_atfork([] { hostPanelMutex.lock(); }, [] { hostPanelMutex.unlock(); },
                 [] { hostPanelMutex.unlock(); });
}

HostPanel currentHostPanel() {
  const std::lock_guard lock(hostPanelMutex);
  return hostPanel;
}

/// Holds the main context for this thread while a panel is open.
class MainThread {
 public:
  MainThread() : isHeld_(g_main_context_acquire(nullptr)) {}
  ~MainThread() {
    if (isHeld_) {
      g_main_context_release(nullptr);
    }
  }
  MainThread(const MainThread&) = delete;
  MainThread& operator=(const MainThread&) = delete;
  bool isHere() const { return isHeld_; }

 private:
  const bool isHeld_;
};

/// The one panel that is open. Looked at on the main thread only.
class OpenPanel {
 public:
  OpenPanel() { isOpen_ = true; }
  ~OpenPanel() { isOpen_ = false; }
  OpenPanel(const OpenPanel&) = delete;
  OpenPanel& operator=(const OpenPanel&) = delete;
  static bool isOpen() { return isOpen_; }

 private:
  static bool isOpen_;
};

bool OpenPanel::isOpen_ = false;

/// An exception that escapes the host's panel ends the process.
bool askHost(const HostPanel& panel, const std::string& request) noexcept {
  return panel.runner(request.c_str(), panel.context) == 1;
}

void warn(const std::string& text) {
  trace(TraceLevel::Warning, "certificate panel not shown: " + text);
}

bool askProgram(const std::string& request) {
  const std::string program = panelProgram();
  if (program.empty()) {
    warn("there is no program zep-trust-panel");
    return false;
  }
  if (request.size() > kLongestPanelRequest) {
    warn("the request is too long");
    return false;
  }
  PanelProcess process(program, request);
  while (!process.hasEnded()) {
    g_main_context_iteration(nullptr, TRUE);
  }
  if (!process.failure().empty()) {
    warn(process.failure());
  }
  return process.isConfirmed();
}

}  // namespace

void setPanelRunner(PanelRunner runner, void* context) {
  const std::lock_guard lock(hostPanelMutex);
  hostPanel = {runner, context};
}

bool runPanel(const PanelRequest& request) {
  const MainThread mainThread;
  if (!mainThread.isHere()) {
    warn("this is not the main thread");
    return false;
  }
  if (OpenPanel::isOpen()) {
    warn("another one is open");
    return false;
  }
  const OpenPanel open;
  const RunLoop::ModeScope mode(RunLoopMode::ModalPanel);
  const HostPanel host = currentHostPanel();
  const std::string text = jsonText(request);
  const bool isConfirmed = host.runner != nullptr ? askHost(host, text) : askProgram(text);
  return isConfirmed && request.kind == PanelKind::Trust;
}

}  // namespace foundation
