// The dialog for a user name and a password. Main thread; deletes itself when it is closed.
#pragma once

#include <QCheckBox>
#include <QDialog>
#include <QLineEdit>
#include <optional>

#include "../desktop/SignIn.h"

namespace example {

class SignInDialog : public QDialog {
 public:
  SignInDialog(QWidget* parent, bool wasRefused);

  // Nothing when the user cancelled.
  std::optional<SignIn::Answer> answer() const;

 private:
  // Owned by the dialog.
  QLineEdit* userName_;
  QLineEdit* password_;
  QCheckBox* keep_;
};

}  // namespace example
