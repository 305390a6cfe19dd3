#pragma once

// Bytes from outside as text. Free functions, any thread.

#include <string_view>

#include "foundation/base/Data.h"
#include "support/BasicString.h"

/// Whether `bytes` is UTF-8 by RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF.
bool IsUtf8(std::string_view bytes);

/// `out` becomes the bytes when they are UTF-8, zero bytes included; otherwise the bytes before the first
/// zero byte.
void AssignText(BasicString& out, const foundation::Data& bytes);
