#pragma once

#include <glib.h>

#include <memory>
#include <string>

#include "foundation/base/Descriptor.h"

namespace foundation {

/// The program that shows a panel, as a child process: gets the request and gives the answer over one socket,
/// its standard input and output. Everything happens on the main thread, which turns the default main context
/// until hasEnded(). Owned by the panel that is open.
///
/// The child's end is noticed by a descriptor of its own, so the host's handling of SIGCHLD is left alone; a
/// host that has every child's end thrown away (SIGCHLD ignored, waitpid(-1)) never gets a confirmation. The
/// child sees its input end when this process does, however that comes about, and closes the panel.
class PanelProcess {
 public:
  /// Starts the program; a start that fails is an end, too.
  PanelProcess(const std::string& program, const std::string& request);
  /// Ends the child when it has not ended.
  ~PanelProcess();
  PanelProcess(const PanelProcess&) = delete;
  PanelProcess& operator=(const PanelProcess&) = delete;

  bool hasEnded() const { return hasEnded_; }
  /// After the end: the child exited with 0 and wrote nothing but the confirmation.
  bool isConfirmed() const { return isConfirmed_; }
  /// After the end: why the panel could not be shown, or was lost; empty when somebody answered it.
  const std::string& failure() const { return failure_; }

 private:
  struct DestroyAndRelease {
    void operator()(GSource* source) const {
      g_source_destroy(source);
      g_source_unref(source);
    }
  };
  using Source = std::unique_ptr<GSource, DestroyAndRelease>;
  using Step = void (PanelProcess::*)();

  void fail(const std::string& what, int error);
  bool start(const std::string& program);
  bool watch();
  template <Step step>
  Source sourceFor(int descriptor, GIOCondition condition);
  void send();
  void receive();
  bool receiveSome();
  void childEnded();
  void endChild();
  void loseTrack();
  void judge(int code, int status);

  std::string unsent_;
  std::string answer_;
  std::string failure_;
  bool hasEnded_ = false;
  bool isConfirmed_ = false;

  pid_t child_ = -1;
  Descriptor socket_;
  Descriptor childDescriptor_;
  Source sending_;
  Source receiving_;
  Source ending_;
};

}  // namespace foundation
