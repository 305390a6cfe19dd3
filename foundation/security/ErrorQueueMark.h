#pragma once

#include <openssl/err.h>

#include <cerrno>

namespace foundation {

/// Takes out of the calling thread's OpenSSL error queue what was added during its life: the TLS connections of
/// the same thread read that queue and must not find errors that are not theirs.
class ErrorQueueMark {
 public:
  ErrorQueueMark() { ERR_set_mark(); }
  ~ErrorQueueMark() { ERR_pop_to_mark(); }
  ErrorQueueMark(const ErrorQueueMark&) = delete;
  ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
};

/// Whether one of the errors in the calling thread's queue says that there was no memory. Takes them all.
inline bool areErrorsOfMemory() {
  bool areSome = false;
  while (const unsigned long error = ERR_get_error()) {
    areSome = areSome || ERR_GET_REASON(error) == (ERR_SYSTEM_ERROR(error) ? ENOMEM : ERR_R_MALLOC_FAILURE);
  }
  return areSome;
}

}  // namespace foundation
