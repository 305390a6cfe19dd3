// The application's window: URLs, tasks, what they brought, and the questions that come up on the way. Main thread.
// Its end, by its close button, ends the application.
#pragma once

#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTimer>
#include <QWidget>
#include <functional>

#include "../desktop/CertificateQuestion.h"
#include "../desktop/SignIn.h"
#include "../desktop/Tasks.h"

namespace example {

class Window : public QWidget {
 public:
  Window();
  ~Window() override;

  // A new task, which gets selected.
  void add(const QString& url);

 private:
  QLayout* makeEntryRow();
  void makeTable();
  QLayout* makeButtonRow();
  void makeResult();

  void runAll();
  void removeSelected();
  // For whatever waits for requests to stop.
  void stopRequests(const std::function<void()>& stop) { signIn_.skipDuring(stop); }

  // The selected task, null: none is.
  const Task* selected() const;
  void showTasks();
  void showRow(int row, const Task& task);
  void showSelected();
  void askToSignIn(bool wasRefused);
  static int askAboutCertificate(const char* requestJson, void* window);

  // Owned by the window.
  QTableWidget* table_ = nullptr;
  QPushButton* run_ = nullptr;
  QPushButton* pause_ = nullptr;
  QPushButton* remove_ = nullptr;
  QPlainTextEdit* result_ = nullptr;

  QTimer clock_;
  CertificateTexts certificateTexts_;
  SignIn signIn_;
  Tasks tasks_;
};

}  // namespace example
