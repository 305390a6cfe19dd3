#include "SignInDialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace example {

SignInDialog::SignInDialog(QWidget* parent, bool wasRefused)
    : QDialog(parent),
      userName_(new QLineEdit),
      password_(new QLineEdit),
      keep_(new QCheckBox("&Keep until the application ends")) {
  setWindowTitle(wasRefused ? "Sign in again" : "Sign in");
  setAttribute(Qt::WA_DeleteOnClose);
  password_->setEchoMode(QLineEdit::Password);
  keep_->setChecked(true);
  auto* const form = new QFormLayout;
  form->addRow("&User name", userName_);
  form->addRow("&Password", password_);
  form->addRow(nullptr, keep_);
  auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
  QPushButton* const signIn = buttons->addButton("&Sign in", QDialogButtonBox::AcceptRole);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  // An answer without a user name or a password would be a refusal.
  const auto check = [this, signIn] {
    signIn->setEnabled(!userName_->text().isEmpty() && !password_->text().isEmpty());
  };
  connect(userName_, &QLineEdit::textChanged, this, check);
  connect(password_, &QLineEdit::textChanged, this, check);
  check();
  auto* const all = new QVBoxLayout(this);
  all->addWidget(new QLabel(wasRefused ? "The user name or the password was not accepted.\nPlease try again."
                                       : "A server asks for a user name and a password."));
  all->addLayout(form);
  all->addWidget(buttons);
  signIn->setDefault(true);  // counts only inside of the dialog
}

std::optional<SignIn::Answer> SignInDialog::answer() const {
  if (result() != Accepted) {
    return std::nullopt;
  }
  return SignIn::Answer{.userName = userName_->text().toStdString(),
                        .password = password_->text().toStdString(),
                        .isKept = keep_->isChecked()};
}

}  // namespace example
