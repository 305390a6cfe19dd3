#pragma once

#include <utility>

#include "foundation/url/loader/ResponseHead.h"

namespace foundation {

/// The answers to one request while curl signs its connection in. curl answers some of them by itself, so a head is
/// held: it counts once its body begins or curl has ended. A value of its transfer.
class NtlmExchange {
 public:
  enum class Step {
    Held,     ///< curl may go on
    Refused,  ///< held as well; the connection is spent, since some servers keep what they have refused
    Endless,  ///< too many answers for one exchange
  };

  /// The head is complete.
  Step headArrived(const ResponseHead& head);
  /// A further head begins: the one that was held, if any, was curl's.
  void nextHeadBegins() { isHeld_ = false; }
  /// Whether a head is held; it is not any more.
  bool releaseHead() { return std::exchange(isHeld_, false); }
  /// Refused twice, and curl is to be stopped, since it takes such an answer for a beginning, on every new connection
  /// again. The head that is held is the answer, not curl's error.
  bool isBrokenOff() const { return isBrokenOff_; }

 private:
  bool isHeld_ = false;
  bool isBrokenOff_ = false;
  int answers_ = 0;
  int refusals_ = 0;
};

}  // namespace foundation
