#pragma once

#include <string>

namespace foundation {

/// The path of the program that shows certificate panels, empty when there is none. It is found by its place
/// beside this library, L being the library's folder: L/../libexec/zep/zep-trust-panel, L/zep/zep-trust-panel,
/// then, when L ends as the folder that libraries are installed to, the place of the installed program beneath the
/// same prefix, whatever that is now. PATH and the working folder are never looked at. The environment variable
/// ZEP_TRUST_PANEL names another program by its absolute path; it is read with secure_getenv(3), so a privileged
/// process ignores it. Any thread.
std::string panelProgram();

}  // namespace foundation
