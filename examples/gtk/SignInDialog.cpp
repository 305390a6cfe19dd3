#include "SignInDialog.h"

#include <utility>

namespace example {
namespace {

constexpr int kMargin = 12;
constexpr int kGap = 12;
constexpr int kLineGap = 8;

// Deletes itself with its window.
class SignInDialog {
 public:
  SignInDialog(GtkWindow* parent, bool wasRefused,
               std::function<void(const std::optional<SignIn::Answer>&)> closed);

 private:
  GtkWidget* makeForm(bool wasRefused);
  GtkWidget* addLine(GtkGrid* form, int line, const char* mnemonic);
  void checkEntries();
  void respond(int response);

  const std::function<void(const std::optional<SignIn::Answer>&)> closed_;
  GtkWidget* dialog_;
  GtkWidget* userName_ = nullptr;
  GtkWidget* password_ = nullptr;
  GtkWidget* keep_ = nullptr;
};

SignInDialog::SignInDialog(GtkWindow* parent, bool wasRefused,
                           std::function<void(const std::optional<SignIn::Answer>&)> closed)
    : closed_(std::move(closed)),
      dialog_(gtk_dialog_new_with_buttons(wasRefused ? "Sign in again" : "Sign in", parent, GTK_DIALOG_MODAL,
                                          "_Cancel", GTK_RESPONSE_CANCEL, "_Sign in", GTK_RESPONSE_OK,
                                          nullptr)) {
  gtk_window_set_resizable(GTK_WINDOW(dialog_), FALSE);
  gtk_container_set_border_width(GTK_CONTAINER(dialog_), kGap / 2);
  GtkWidget* const content = gtk_dialog_get_content_area(GTK_DIALOG(dialog_));
  gtk_box_set_spacing(GTK_BOX(content), 0);
  gtk_container_add(GTK_CONTAINER(content), makeForm(wasRefused));
  gtk_dialog_set_default_response(GTK_DIALOG(dialog_), GTK_RESPONSE_OK);
  const auto responded = +[](GtkDialog*, int response, gpointer dialog) {
    static_cast<SignInDialog*>(dialog)->respond(response);
  };
  g_signal_connect(dialog_, "response", G_CALLBACK(responded), this);
  checkEntries();
  gtk_widget_show_all(dialog_);
}

GtkWidget* SignInDialog::makeForm(bool wasRefused) {
  GtkWidget* const form = gtk_grid_new();
  gtk_container_set_border_width(GTK_CONTAINER(form), kMargin);
  gtk_grid_set_row_spacing(GTK_GRID(form), kLineGap);
  gtk_grid_set_column_spacing(GTK_GRID(form), kGap);
  GtkWidget* const icon =
      gtk_image_new_from_icon_name(wasRefused ? "dialog-warning" : "dialog-password", GTK_ICON_SIZE_DIALOG);
  gtk_widget_set_valign(icon, GTK_ALIGN_START);
  gtk_widget_set_margin_end(icon, kGap / 2);
  gtk_grid_attach(GTK_GRID(form), icon, 0, 0, 1, 4);
  GtkWidget* const question =
      gtk_label_new(wasRefused ? "The user name or the password was not accepted.\nPlease try again."
                               : "A server asks for a user name and a password.");
  gtk_label_set_xalign(GTK_LABEL(question), 0);
  gtk_widget_set_margin_bottom(question, kLineGap);
  gtk_grid_attach(GTK_GRID(form), question, 1, 0, 2, 1);
  userName_ = addLine(GTK_GRID(form), 1, "_User name");
  password_ = addLine(GTK_GRID(form), 2, "_Password");
  gtk_entry_set_visibility(GTK_ENTRY(password_), FALSE);
  gtk_entry_set_input_purpose(GTK_ENTRY(password_), GTK_INPUT_PURPOSE_PASSWORD);
  keep_ = gtk_check_button_new_with_mnemonic("_Keep until the application ends");
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(keep_), TRUE);
  gtk_grid_attach(GTK_GRID(form), keep_, 2, 3, 1, 1);
  return form;
}

GtkWidget* SignInDialog::addLine(GtkGrid* form, int line, const char* mnemonic) {
  constexpr int kCharacters = 28;
  GtkWidget* const entry = gtk_entry_new();
  gtk_entry_set_width_chars(GTK_ENTRY(entry), kCharacters);
  gtk_entry_set_activates_default(GTK_ENTRY(entry), TRUE);
  gtk_widget_set_hexpand(entry, TRUE);
  const auto changed =
      +[](GtkEditable*, gpointer dialog) { static_cast<SignInDialog*>(dialog)->checkEntries(); };
  g_signal_connect(entry, "changed", G_CALLBACK(changed), this);
  GtkWidget* const label = gtk_label_new_with_mnemonic(mnemonic);
  gtk_label_set_mnemonic_widget(GTK_LABEL(label), entry);
  gtk_label_set_xalign(GTK_LABEL(label), 1);
  gtk_grid_attach(form, label, 1, line, 1, 1);
  gtk_grid_attach(form, entry, 2, line, 1, 1);
  return entry;
}

// An answer without a user name or a password would be a refusal.
void SignInDialog::checkEntries() {
  const bool areBoth = userName_ != nullptr && password_ != nullptr &&
                       gtk_entry_get_text_length(GTK_ENTRY(userName_)) > 0 &&
                       gtk_entry_get_text_length(GTK_ENTRY(password_)) > 0;
  gtk_dialog_set_response_sensitive(GTK_DIALOG(dialog_), GTK_RESPONSE_OK, areBoth);
}

void SignInDialog::respond(int response) {
  std::optional<SignIn::Answer> answer;
  if (response == GTK_RESPONSE_OK) {
    answer = {.userName = gtk_entry_get_text(GTK_ENTRY(userName_)),
              .password = gtk_entry_get_text(GTK_ENTRY(password_)),
              .isKept = gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(keep_)) != FALSE};
  }
  gtk_widget_destroy(dialog_);
  closed_(answer);
  delete this;
}

}  // namespace

void showSignInDialog(GtkWindow* parent, bool wasRefused,
                      std::function<void(const std::optional<SignIn::Answer>&)> closed) {
  new SignInDialog(parent, wasRefused, std::move(closed));
}

}  // namespace example
