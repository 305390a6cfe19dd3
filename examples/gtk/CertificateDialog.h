// The dialog about a server whose certificate does not hold. Main thread.
#pragma once

#include <gtk/gtk.h>

#include "../desktop/CertificateQuestion.h"

namespace example {

// True when the user goes on in spite of it. Turns the main loop meanwhile.
bool runCertificateDialog(GtkWindow* parent, const CertificateQuestion& question);

}  // namespace example
