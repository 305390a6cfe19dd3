// The application's window: URLs, tasks, what they brought, and the questions that come up on the way. Main thread.
// Its end, by its close button, ends gtk_main().
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>

#include "../desktop/CertificateQuestion.h"
#include "../desktop/SignIn.h"
#include "../desktop/Tasks.h"

namespace example {

class Window {
 public:
  Window();
  ~Window();
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  // A new task, which gets selected.
  void add(const std::string& url);

 private:
  GtkWidget* makeEntryRow();
  GtkWidget* makeTaskList();
  GtkWidget* makeButtonRow();
  GtkWidget* makePanes();

  void addTyped();
  void runSelected();
  void runAll();
  void pauseSelected();
  void removeSelected();
  // For whatever waits for requests to stop.
  void stopRequests(const std::function<void()>& stop) { signIn_.skipDuring(stop); }

  // The selected task, NULL: none is.
  const Task* selected() const;
  void changed(const Task& task);
  void showTimes();
  void showRow(const Task& task);
  void showSelected();
  void showSummary();
  void askToSignIn(bool wasRefused);
  static int askAboutCertificate(const char* requestJson, void* window);

  GtkWidget* window_;
  GtkWidget* entry_ = nullptr;
  GtkListStore* rows_ = nullptr;
  GtkWidget* list_ = nullptr;
  GtkWidget* run_ = nullptr;
  GtkWidget* pause_ = nullptr;
  GtkWidget* remove_ = nullptr;
  GtkTextBuffer* result_ = nullptr;
  GtkTextBuffer* snapshot_ = nullptr;
  guint clock_ = 0;

  CertificateTexts certificateTexts_;
  SignIn signIn_;
  Tasks tasks_;
};

}  // namespace example
