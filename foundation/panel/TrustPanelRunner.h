#pragma once

#include "foundation/base/Export.h"
#include "foundation/panel/PanelRequest.h"

namespace foundation {

/// Main thread. Shows the panel and turns the main run loop in modal-panel mode until it is closed; true:
/// confirmed. Anything else is false: declined, closed, killed, no display, no program to show it with. What
/// kept the panel from being shown is traced as a warning.
///
/// One panel at a time: asked for while another one is open, it is not shown and not confirmed. Whoever asks
/// through DispatchQueue::main() is not concerned, for that queue holds its next block until the panel is
/// closed.
FOUNDATION_EXPORT bool runPanel(const PanelRequest& request);

/// A host's own panel: see ZEP_TrustPanelRunner (ZEP_Foundation.h).
using PanelRunner = int (*)(const char* requestJson, void* context);

/// Sets the host's own panel, null for the built-in one. Any thread; a panel that is open is not touched.
FOUNDATION_EXPORT void setPanelRunner(PanelRunner runner, void* context);

}  // namespace foundation
