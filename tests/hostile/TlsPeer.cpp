#include "tests/hostile/TlsPeer.h"

#include <algorithm>
#include <memory>
#include <sstream>
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
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_keylog_callback(context, [](const SSL* ssl, const char* line) {
    static_cast<TlsPeer*>(SSL_get_app_data(ssl))->noteSecret(line);
  });
  check(context != nullptr && SSL_CTX_set_ciphersuites(context, "TLS_AES_128_GCM_SHA256") == 1 &&
        SSL_CTX_use_certificate_chain_file(context, leaf.chainFile.c_str()) == 1 &&
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
  SSL_set_app_data(ssl_.get(), this);
  SSL_set_accept_state(ssl_.get());
}

/// A line as of NSS: label, random number of the client's, secret.
void TlsPeer::noteSecret(const char* line) {
  std::istringstream words(line);
  std::string label;
  std::string random;
  std::string digits;
  words >> label >> random >> digits;
  std::string secret;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    secret.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
  secrets_[label] = secret;
}

bool TlsPeer::shakeHands() {
  for (;;) {
    const int result = SSL_do_handshake(ssl_.get());
    const bool isWaiting = result != 1 && SSL_get_error(ssl_.get(), result) == SSL_ERROR_WANT_READ;
    if (!flush()) {
      return false;
    }
    if (result == 1) {
      protected_ = 0;
      return true;
    }
    if (!isWaiting || !receive()) {
      return false;
    }
  }
}

bool TlsPeer::answerHello() {
  for (;;) {
    SSL_do_handshake(ssl_.get());
    if (BIO_ctrl_pending(out_) > 0) {
      return flush();
    }
    if (!receive()) {
      return false;
    }
  }
}

bool TlsPeer::flush() {
  constexpr std::size_t kHead = 5;
  std::string bytes(BIO_ctrl_pending(out_), '\0');
  BIO_read(out_, bytes.data(), static_cast<int>(bytes.size()));
  for (std::size_t at = 0; at < bytes.size();) {
    isCut_ = recordsLeft_ == 0;
    if (isCut_) {
      return false;
    }
    const auto byte = [&](std::size_t i) {
      return static_cast<std::size_t>(static_cast<unsigned char>(bytes[i]));
    };
    const std::size_t whole = kHead + (byte(at + 3) << 8 | byte(at + 4));
    const std::size_t length = std::min(whole, left_);
    --recordsLeft_;
    left_ -= length;
    sent_ += length;
    ++records_;
    protected_ += bytes[at] == kDataRecord ? 1 : 0;
    if (!connection_.send(bytes.substr(at, length)) || length < whole) {
      return false;
    }
    at += whole;
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

bool TlsPeer::sendRecord(char type, const std::string& content) {
  sent_ += content.size();
  if (SSL_version(ssl_.get()) < TLS1_3_VERSION || records_ == 0) {
    return connection_.send(plainRecord(type, content));
  }
  if (!sealer_) {
    if (isCut_) {
      sealer_.emplace(secrets_.at("SERVER_HANDSHAKE_TRAFFIC_SECRET"), protected_);
    } else {
      sealer_.emplace(secrets_.at("SERVER_TRAFFIC_SECRET_0"),
                      SSL_is_init_finished(ssl_.get()) ? protected_ : 0);
    }
  }
  return connection_.send(sealer_->seal(type, content));
}

bool TlsPeer::goOn() {
  SSL_do_handshake(ssl_.get());
  return flush();
}

std::string plainRecord(char type, const std::string& content) {
  return std::string{type, 3, 3, static_cast<char>(content.size() >> 8), static_cast<char>(content.size())} +
         content;
}

RawServer::Script answeringOverTls(const CertificateAuthority::Leaf& leaf, const std::string& body) {
  const auto identity = std::make_shared<TlsIdentity>(leaf, TlsIdentity::Offer{});
  return [identity, body](RawServer::Connection& connection) {
    TlsPeer peer(connection, *identity);
    if (peer.shakeHands() && !peer.readRequest().empty()) {
      peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
  };
}

}  // namespace test
