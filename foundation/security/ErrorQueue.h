#pragma once

#include <openssl/err.h>

#include "foundation/base/Shortage.h"

namespace foundation {

/// OpenSSL's errors of the calling thread, for a work of OpenSSL's that goes on after some of them. None are there when
/// it begins, and none afterwards: the TLS connections of the same thread must not find errors that are not theirs.
class ErrorQueue {
 public:
  ErrorQueue() { ERR_clear_error(); }
  ~ErrorQueue() { ERR_clear_error(); }
  ErrorQueue(const ErrorQueue&) = delete;
  ErrorQueue& operator=(const ErrorQueue&) = delete;

  /// Whether there was no descriptor or no memory for something. Takes the errors out.
  bool tellsOfShortage() {
    bool isShort = false;
    for (unsigned long error = ERR_get_error(); error != 0; error = ERR_get_error()) {
      const int reason = ERR_GET_REASON(error);
      isShort = isShort || (ERR_SYSTEM_ERROR(error) ? isShortage(reason) : reason == ERR_R_MALLOC_FAILURE);
    }
    return isShort;
  }
};

}  // namespace foundation
