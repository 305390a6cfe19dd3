#include "foundation/security/CertificateStore.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>

#include "foundation/base/Shortage.h"
#include "foundation/base/Trace.h"
#include "foundation/security/ErrorQueue.h"

namespace foundation {
namespace {

/// One of OpenSSL's default places.
std::string place(const char* variable, const char* otherwise) {
  const char* named = secure_getenv(variable);
  return named != nullptr ? named : otherwise;
}

/// As OpenSSL names a revocation list in a folder: its issuer's hash, and a number.
bool isRevocationList(std::string_view name) {
  constexpr std::size_t kHashDigits = 8;
  constexpr std::string_view kDigits = "0123456789";
  return name.size() > kHashDigits + 2 && name.substr(kHashDigits, 2) == ".r" &&
         name.find_first_not_of(kDigits, kHashDigits + 2) == std::string_view::npos;
}

/// OpenSSL would look for a revocation list when it is needed, and never again when it could not open it then.
/// False when there is no descriptor or no memory for the folder; of its files OpenSSL's errors tell.
bool loadRevocationLists(X509_STORE* store, const std::string& folder) {
  X509_LOOKUP* const files = X509_STORE_add_lookup(store, X509_LOOKUP_file());
  if (files == nullptr) {
    return false;
  }
  std::error_code error;
  std::filesystem::directory_iterator entry(folder, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (isRevocationList(entry->path().filename().string())) {
      X509_load_crl_file(files, entry->path().c_str(), X509_FILETYPE_PEM);
    }
  }
  return !isShortage(error.value());
}

enum class Loaded { Yes, No, NotNow };

/// The certificates of the folders are read when they are needed.
Loaded load(X509_STORE* store) {
  const std::string file = place(X509_get_default_cert_file_env(), X509_get_default_cert_file());
  const std::string folders = place(X509_get_default_cert_dir_env(), X509_get_default_cert_dir());
  ErrorQueue errors;
  const bool isFileLoaded = X509_STORE_load_file(store, file.c_str()) == 1;
  const bool areFoldersNoted = X509_STORE_load_path(store, folders.c_str()) == 1;
  bool isComplete = true;
  for (std::size_t begin = 0; begin <= folders.size();) {
    const std::size_t end = std::min(folders.find(':', begin), folders.size());
    isComplete = loadRevocationLists(store, folders.substr(begin, end - begin)) && isComplete;
    begin = end + 1;
  }
  if (!isComplete || errors.tellsOfShortage()) {
    trace(TraceLevel::Warning, "the certificate store cannot be read now");
    return Loaded::NotNow;
  }
  if (areFoldersNoted && (isFileLoaded || access(file.c_str(), F_OK) != 0)) {
    return Loaded::Yes;
  }
  trace(TraceLevel::Warning, "the certificate store cannot be loaded; no server will be trusted");
  return Loaded::No;
}

}  // namespace

X509_STORE* CertificateStore::shared() {
  // Never freed: connections may still use it while the process exits.
  static constinit std::mutex mutex;
  static X509_STORE* store = nullptr;
  static bool isLoaded = false;
  const std::lock_guard lock(mutex);
  if (store == nullptr) {
    store = X509_STORE_new();
  }
  if (store != nullptr && !isLoaded) {
    const Loaded loaded = load(store);
    isLoaded = loaded == Loaded::Yes;
    if (loaded == Loaded::NotNow) {
      return nullptr;
    }
  }
  return store;
}

}  // namespace foundation
