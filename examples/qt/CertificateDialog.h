// The dialog about a server whose certificate does not hold. Main thread.
#pragma once

#include <QWidget>

#include "../desktop/CertificateQuestion.h"

namespace example {

// True when the user goes on in spite of it. Turns the event loop meanwhile.
bool isCertificateAccepted(QWidget* parent, const CertificateQuestion& question);

}  // namespace example
