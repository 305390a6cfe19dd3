#pragma once

#include "foundation/base/ExitBarrier.h"

namespace foundation {

/// A use of OpenSSL, as long as the object lives, on a thread that the end of the process does not wait for. OpenSSL
/// takes itself down at exit; that waits for the uses that have begun, and those that begin later are denied. Any
/// thread; uses may nest.
///
/// OpenSSL keeps some of its own for each thread and frees it when the thread ends, which must not happen while OpenSSL is
/// taken down. The library's own threads may end at any time, so theirs is freed with the use.
class OpenSSLUse {
 public:
  OpenSSLUse();
  ~OpenSSLUse();
  OpenSSLUse(const OpenSSLUse&) = delete;
  OpenSSLUse& operator=(const OpenSSLUse&) = delete;

  /// False: OpenSSL must not be called any more.
  bool isAllowed() const { return use_.isAllowed(); }

 private:
  const ExitBarrier::Use use_;
};

}  // namespace foundation
