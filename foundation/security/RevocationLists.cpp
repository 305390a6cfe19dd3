#include "foundation/security/RevocationLists.h"

#include <openssl/pem.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <optional>

#include "foundation/base/Release.h"
#include "foundation/base/Shortage.h"
#include "foundation/base/Trace.h"
#include "foundation/files/RegularFile.h"

namespace foundation {
namespace {

using Input = std::unique_ptr<BIO, Release<BIO_free_all>>;
using List = std::unique_ptr<X509_CRL, Release<X509_CRL_free>>;

std::vector<std::string> split(std::string_view folders) {
  std::vector<std::string> all;
  while (!folders.empty()) {
    const std::size_t end = std::min(folders.find(':'), folders.size());
    if (end > 0) {
      all.emplace_back(folders.substr(0, end));
    }
    folders.remove_prefix(std::min(end + 1, folders.size()));
  }
  return all;
}

/// What the names of the files begin with; nothing when there is no memory for it.
std::optional<std::string> prefixOf(const X509_NAME* issuer) {
  int isHashed = 0;
  const unsigned long hash = X509_NAME_hash_ex(issuer, nullptr, nullptr, &isHashed);
  char prefix[] = "01234567.r";
  std::snprintf(prefix, sizeof(prefix), "%08lx.r", hash & 0xFFFF'FFFF);
  return isHashed != 0 ? std::optional<std::string>(prefix) : std::nullopt;
}

std::vector<List> listsOf(std::string_view bytes) {
  std::vector<List> lists;
  const Input input(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  if (input == nullptr) {
    throw std::bad_alloc();
  }
  // Without a password nobody is asked for one.
  char none[] = "";
  while (X509_CRL* list = PEM_read_bio_X509_CRL(input.get(), nullptr, nullptr, none)) {
    lists.emplace_back(list);
  }
  if (lists.empty()) {
    auto* next = reinterpret_cast<const unsigned char*>(bytes.data());
    if (X509_CRL* list = d2i_X509_CRL(nullptr, &next, static_cast<long>(bytes.size()))) {
      lists.emplace_back(list);
    }
  }
  return lists;
}

}  // namespace

RevocationLists::RevocationLists(X509_STORE* store, std::string_view folders)
    : store_(store), folders_(split(folders)) {
}

RevocationLists::Read RevocationLists::read(const X509_NAME* issuer) {
  const std::optional<std::string> prefix = prefixOf(issuer);
  if (!prefix) {
    return Read::NotNow;
  }
  const std::lock_guard lock(mutex_);
  Read all = Read::NothingNew;
  for (const std::string& folder : folders_) {
    for (int number = 0;; ++number) {
      const std::string path = folder + "/" + *prefix + std::to_string(number);
      struct stat status = {};
      if (lstat(path.c_str(), &status) == 0) {
        all = std::max(all, readFile(path));
      } else if (isShortage(errno)) {
        return Read::NotNow;
      } else {
        break;
      }
    }
  }
  return all;
}

/// What is no list now may be one later.
RevocationLists::Read RevocationLists::readFile(const std::string& path) {
  if (read_.contains(path)) {
    return Read::NothingNew;
  }
  const RegularFile file(path);
  if (!file.isOpen() && !isShortage(file.error())) {
    return Read::NothingNew;
  }
  const std::optional<std::string> bytes =
      file.isOpen() ? file.readAll(std::numeric_limits<int>::max()) : std::nullopt;
  if (!bytes) {
    trace(TraceLevel::Warning, "the revocation list cannot be read now: " + path);
    return Read::NotNow;
  }
  const std::vector<List> lists = listsOf(*bytes);
  for (const List& list : lists) {
    if (X509_STORE_add_crl(store_, list.get()) != 1) {
      throw std::bad_alloc();
    }
  }
  if (lists.empty()) {
    return Read::NothingNew;
  }
  read_.insert(path);
  return Read::SomeNew;
}

}  // namespace foundation
