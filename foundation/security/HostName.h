#pragma once

#include <string_view>

#include "foundation/security/Certificate.h"

namespace foundation {

/// Whether the certificate is issued to that host (RFC 9525): a name by a DNS alternative name, in which `*` may
/// stand for the whole first label; an address (IPv6 with or without brackets and zone) by an address alternative
/// name. Never by the subject's common name, which says nothing of its own kind. One final dot of the host does
/// not count.
bool isIssuedTo(const Certificate& certificate, std::string_view host);

}  // namespace foundation
