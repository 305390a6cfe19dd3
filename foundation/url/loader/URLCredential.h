#pragma once

#include <optional>
#include <string>

#include "foundation/url/Credential.h"
#include "foundation/url/URL.h"

namespace foundation {

/// The "user:password" of a URL, percent-decoded, for the request only. Nothing when there is no user name or
/// no password, or when one of them would decode to a control character.
std::optional<Credential> credentialOfURL(const URL& url);

/// The URL's text without user name and password, as it goes to everybody but the server that asks for them.
std::string textWithoutUserInfo(const URL& url);

}  // namespace foundation
