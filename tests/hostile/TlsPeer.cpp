#include "tests/hostile/TlsPeer.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace test {
namespace {

void check(bool isRight) {
  if (!isRight) {
    throw std::runtime_error("cannot set TLS up");
  }
}

int chooseHttp2(SSL*, const unsigned char** chosen, unsigned char* length, const unsigned char*, unsigned,
                void*) {
  *chosen = reinterpret_cast<const unsigned char*>("h2");
  *length = 2;
  return SSL_TLSEXT_ERR_OK;
}

}  // namespace

TlsIdentity::TlsIdentity(const CertificateAuthority::Leaf& leaf, const Offer& offer)
    : context_(SSL_CTX_new(TLS_server_method())) {
  SSL_CTX* const context = context_.get();
  // Old versions are offered, too; the library must not take them.
  SSL_CTX_set_security_level(context, 0);
  // Tickets would come behind the handshake.
  SSL_CTX_set_num_tickets(context, 0);
  check(context != nullptr && SSL_CTX_use_certificate_chain_file(context, leaf.chainFile.c_str()) == 1 &&
        SSL_CTX_use_PrivateKey_file(context, leaf.keyFile.c_str(), SSL_FILETYPE_PEM) == 1 &&
        SSL_CTX_set_min_proto_version(context, offer.lowest) == 1 &&
        SSL_CTX_set_max_proto_version(context, offer.highest) == 1);
  for (int i = 0; i < offer.repeated; ++i) {
    check(SSL_CTX_add1_chain_cert(context, SSL_CTX_get0_certificate(context)) == 1);
  }
  if (offer.http2) {
    SSL_CTX_set_alpn_select_cb(context, &chooseHttp2, nullptr);
  }
}

TlsPeer::TlsPeer(RawServer::Connection& connection, const TlsIdentity& identity)
    : connection_(connection),
      ssl_(SSL_new(identity.context())),
      in_(BIO_new(BIO_s_mem())),
      out_(BIO_new(BIO_s_mem())) {
  SSL_set_bio(ssl_.get(), in_, out_);
  SSL_set_accept_state(ssl_.get());
}

bool TlsPeer::shakeHands() {
  for (;;) {
    const int result = SSL_do_handshake(ssl_.get());
    const bool isWaiting = result != 1 && SSL_get_error(ssl_.get(), result) == SSL_ERROR_WANT_READ;
    if (!flush()) {
      return false;
    }
    if (result == 1) {
      return true;
    }
    if (!isWaiting || !receive()) {
      return false;
    }
  }
}

bool TlsPeer::flush() {
  char buffer[16384];
  for (int count = 0; (count = BIO_read(out_, buffer, sizeof(buffer))) > 0;) {
    const std::size_t length = std::min(static_cast<std::size_t>(count), left_);
    left_ -= length;
    sent_ += length;
    if (!connection_.send({buffer, length}) || length < static_cast<std::size_t>(count)) {
      return false;
    }
  }
  return true;
}

bool TlsPeer::receive() {
  const std::string bytes = connection_.readSome();
  return !bytes.empty() && BIO_write(in_, bytes.data(), static_cast<int>(bytes.size())) > 0;
}

bool TlsPeer::fill() {
  for (;;) {
    char buffer[16384];
    const int count = SSL_read(ssl_.get(), buffer, sizeof(buffer));
    if (count > 0) {
      pending_.append(buffer, static_cast<std::size_t>(count));
      return true;
    }
    if (SSL_get_error(ssl_.get(), count) != SSL_ERROR_WANT_READ || !flush() || !receive()) {
      return false;
    }
  }
}

std::string TlsPeer::readRequest() {
  std::size_t end = 0;
  while ((end = pending_.find("\r\n\r\n")) == std::string::npos) {
    if (!fill()) {
      return std::exchange(pending_, {});
    }
  }
  std::string request = pending_.substr(0, end + 4);
  pending_.erase(0, end + 4);
  return request;
}

std::string TlsPeer::read(std::size_t bytes) {
  while (pending_.size() < bytes && fill()) {
  }
  std::string result = pending_.substr(0, bytes);
  pending_.erase(0, result.size());
  return result;
}

bool TlsPeer::send(const std::string& text) {
  return text.empty() || (SSL_write(ssl_.get(), text.data(), static_cast<int>(text.size())) > 0 && flush());
}

void TlsPeer::notifyClose() {
  SSL_shutdown(ssl_.get());
  flush();
}

}  // namespace test
