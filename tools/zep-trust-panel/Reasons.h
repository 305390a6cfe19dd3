#pragma once

#include <string>
#include <vector>

#include "CertificateChain.h"

/// What speaks against the certificates for that host, in plain words, a sentence each, the host name first; the
/// judgement is the library's own, by the same store. Empty when nothing does.
std::vector<std::string> reasonsAgainst(const CertificateChain& chain, const std::string& host);
