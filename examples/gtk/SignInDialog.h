// The dialog for a user name and a password. Main thread.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <optional>

#include "../desktop/SignIn.h"

namespace example {

// Returns at once; `closed` is called once, with nothing when the user cancelled.
void showSignInDialog(GtkWindow* parent, bool wasRefused,
                      std::function<void(const std::optional<SignIn::Answer>&)> closed);

}  // namespace example
