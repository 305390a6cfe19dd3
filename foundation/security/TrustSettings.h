#pragma once

#include <optional>
#include <vector>

#include "foundation/base/Dictionary.h"
#include "foundation/base/Export.h"
#include "foundation/security/Certificate.h"

namespace foundation {

/// What the user has laid down about that certificate, in order: the dictionaries under `trustSettings` in the
/// property list zep/TrustSettings.plist of the user's configuration folder,
///   {trustList: {SHA-1 in hexadecimal: {trustSettings: [{kSecTrustSettingsResult: n}, ...]}}}
/// An element that is no dictionary counts as an empty one. Nothing when there is no file, no entry, or the file
/// is no such list, belongs to neither the user nor root, or may be written by anybody else. A file that cannot be
/// opened for want of descriptors or memory refuses every certificate meanwhile. The file is read again when it has
/// changed. Any thread.
FOUNDATION_EXPORT std::optional<std::vector<Dictionary>> copyTrustSettings(const Certificate& certificate);

}  // namespace foundation
