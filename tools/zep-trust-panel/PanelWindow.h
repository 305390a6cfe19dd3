#pragma once

#include <gtk/gtk.h>

#include <string>
#include <vector>

#include "CertificateChain.h"
#include "foundation/panel/PanelRequest.h"

/// The panel on the screen. Main thread, after gtk_init; shown by the constructor. The buttons stand outside of
/// what scrolls, so no text pushes them off the screen; the button that declines has the focus and is the
/// default, and Escape and closing the window decline, too.
class PanelWindow {
 public:
  PanelWindow(const foundation::PanelRequest& request, const CertificateChain& chain);
  ~PanelWindow();
  PanelWindow(const PanelWindow&) = delete;
  PanelWindow& operator=(const PanelWindow&) = delete;

  /// Turns the toolkit's loop until the panel is closed; true when the user confirmed.
  bool run();
  /// Ends run() without a confirmation.
  void close();
  /// Makes the window as high as its content, or as the screen if that is lower.
  void fitToScreen();

 private:
  GtkWidget* makeContent(const foundation::PanelRequest& request, const CertificateChain& chain);
  GtkWidget* makeExpander(const char* mnemonic, GtkWidget* child);
  GtkWidget* makeButtons(const foundation::PanelRequest& request);
  GtkWidget* makeConfirmingButton();
  GtkWidget* makeDecliningButton(const std::string& title);

  GtkWidget* const window_;
  GtkWidget* content_ = nullptr;
  GtkWidget* buttons_ = nullptr;
  GtkWidget* declining_ = nullptr;
  bool isConfirmed_ = false;
};
