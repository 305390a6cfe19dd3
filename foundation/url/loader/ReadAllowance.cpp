#include "foundation/url/loader/ReadAllowance.h"

#include <openssl/bio.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "foundation/base/Release.h"

namespace foundation {
namespace {

/// Some milliseconds' work when all of it is the smallest frames.
constexpr int kBytesOfATurn = 256 << 10;

std::uint64_t turn = 0;

struct Allowance {
  std::uint64_t turn = 0;
  int left = 0;
};

using Method = std::unique_ptr<BIO_METHOD, Release<BIO_meth_free>>;

int read(BIO* filter, char* bytes, int length) {
  auto* allowance = static_cast<Allowance*>(BIO_get_data(filter));
  BIO_clear_retry_flags(filter);
  if (allowance->turn != turn) {
    *allowance = {.turn = turn, .left = kBytesOfATurn};
  }
  if (allowance->left == 0) {
    // The rest stays in the socket, which so is readable in the next turn.
    BIO_set_retry_read(filter);
    return -1;
  }
  const int count = BIO_read(BIO_next(filter), bytes, std::min(length, allowance->left));
  if (count > 0) {
    allowance->left -= count;
  }
  BIO_copy_next_retry(filter);
  return count;
}

int write(BIO* filter, const char* bytes, int length) {
  BIO_clear_retry_flags(filter);
  const int count = BIO_write(BIO_next(filter), bytes, length);
  BIO_copy_next_retry(filter);
  return count;
}

long control(BIO* filter, int command, long number, void* pointer) {
  return BIO_next(filter) == nullptr ? 0 : BIO_ctrl(BIO_next(filter), command, number, pointer);
}

int destroy(BIO* filter) {
  delete static_cast<Allowance*>(BIO_get_data(filter));
  return 1;
}

int type() {
  static const int own = BIO_get_new_index() | BIO_TYPE_FILTER;
  return own;
}

const BIO_METHOD* method() {
  // Never freed: connections may be there until the process ends.
  static const BIO_METHOD* const own = [] {
    Method made(BIO_meth_new(type(), "a turn's allowance"));
    const bool isComplete =
        made && BIO_meth_set_read(made.get(), &read) == 1 && BIO_meth_set_write(made.get(), &write) == 1 &&
        BIO_meth_set_ctrl(made.get(), &control) == 1 && BIO_meth_set_destroy(made.get(), &destroy) == 1;
    return isComplete ? made.release() : nullptr;
  }();
  return own;
}

}  // namespace

void ReadAllowance::beginTurn() {
  ++turn;
}

bool ReadAllowance::limit(SSL* tls) {
  if (BIO_method_type(SSL_get_rbio(tls)) == type()) {
    return true;
  }
  std::unique_ptr<Allowance> allowance(new (std::nothrow) Allowance);
  BIO* const filter = allowance && method() != nullptr ? BIO_new(method()) : nullptr;
  BIO* const own = SSL_get_rbio(tls);
  if (filter == nullptr || BIO_up_ref(own) != 1) {
    BIO_free(filter);
    return false;
  }
  BIO_set_data(filter, allowance.release());
  BIO_set_init(filter, 1);
  SSL_set0_rbio(tls, BIO_push(filter, own));
  return true;
}

}  // namespace foundation
