#include "foundation/security/CertificateStore.h"

#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

#include "foundation/base/Shortage.h"
#include "foundation/base/Trace.h"
#include "foundation/files/RegularFile.h"
#include "foundation/security/ErrorQueueMark.h"

namespace foundation {
namespace {

bool isEmpty(X509_STORE* store) {
  X509_STORE_lock(store);
  const int count = sk_X509_OBJECT_num(X509_STORE_get0_objects(store));
  X509_STORE_unlock(store);
  return count == 0;
}

/// The file among OpenSSL's default places.
const char* defaultFile() {
  const char* named = secure_getenv(X509_get_default_cert_file_env());
  return named != nullptr ? named : X509_get_default_cert_file();
}

const char* defaultFolders() {
  const char* named = secure_getenv(X509_get_default_cert_dir_env());
  return named != nullptr ? named : X509_get_default_cert_dir();
}

}  // namespace

CertificateStore::CertificateStore(X509Store x509)
    : x509_(std::move(x509)), revocationLists_(x509_.get(), defaultFolders()) {
}

/// As OpenSSL does it by itself, but once for the folders, and not silent when it says that there was no memory.
void CertificateStore::addDefaultPlaces() {
  X509_LOOKUP* file = X509_STORE_add_lookup(x509(), X509_LOOKUP_file());
  X509_LOOKUP* folders = X509_STORE_add_lookup(x509(), X509_LOOKUP_hash_dir());
  X509_LOOKUP* uris = X509_STORE_add_lookup(x509(), X509_LOOKUP_store());
  if (file == nullptr || folders == nullptr || uris == nullptr) {
    throw std::bad_alloc();
  }
  ERR_clear_error();
  X509_LOOKUP_load_file(file, nullptr, X509_FILETYPE_DEFAULT);
  if (!hasFolders_) {
    X509_LOOKUP_add_dir(folders, nullptr, X509_FILETYPE_DEFAULT);
    X509_LOOKUP_add_store(uris, nullptr);
  }
  if (areErrorsOfMemory()) {
    throw std::bad_alloc();
  }
  hasFolders_ = true;
}

/// Not loaded is a store whose file has given nothing: there may have been no descriptor to read it, of which OpenSSL
/// says nothing.
CertificateStore::Loaded CertificateStore::load() {
  addDefaultPlaces();
  if (!isEmpty(x509()) || access(defaultFile(), F_OK) != 0) {
    return Loaded::Yes;
  }
  if (isShortage(RegularFile(defaultFile()).error())) {
    trace(TraceLevel::Warning, "the certificate store cannot be read now");
    return Loaded::NotNow;
  }
  trace(TraceLevel::Warning, "the certificate store cannot be loaded; no server will be trusted");
  return Loaded::No;
}

CertificateStore* CertificateStore::shared() {
  // Never freed: connections may still use it while the process exits.
  static constinit std::mutex mutex;
  static CertificateStore* store = nullptr;
  static bool isLoaded = false;
  const std::lock_guard lock(mutex);
  if (store == nullptr) {
    if (X509Store x509(X509_STORE_new()); x509 != nullptr) {
      store = new CertificateStore(std::move(x509));
    }
  }
  if (store != nullptr && !isLoaded) {
    const Loaded loaded = store->load();
    isLoaded = loaded == Loaded::Yes;
    if (loaded == Loaded::NotNow) {
      return nullptr;
    }
  }
  return store;
}

}  // namespace foundation
