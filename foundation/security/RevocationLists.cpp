#include "foundation/security/RevocationLists.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <optional>

#include "foundation/base/Release.h"
#include "foundation/base/Shortage.h"
#include "foundation/base/Trace.h"
#include "foundation/files/RegularFile.h"
#include "foundation/security/ErrorQueueMark.h"

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

struct Content {
  std::vector<List> lists;
  /// There is nothing else.
  bool isWhole = false;
};

void addInPem(Content& content, std::string_view bytes) {
  const Input input(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  if (input == nullptr) {
    throw std::bad_alloc();
  }
  // Without a password nobody is asked for one.
  char none[] = "";
  while (X509_CRL* list = PEM_read_bio_X509_CRL(input.get(), nullptr, nullptr, none)) {
    content.lists.emplace_back(list);
  }
  // There is an error at the end, too, unless there was no memory for it.
  if (ERR_peek_last_error() == 0) {
    throw std::bad_alloc();
  }
  content.isWhole = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
}

void addInDer(Content& content, std::string_view bytes) {
  auto* next = reinterpret_cast<const unsigned char*>(bytes.data());
  X509_CRL* list = d2i_X509_CRL(nullptr, &next, static_cast<long>(bytes.size()));
  if (list != nullptr) {
    content.lists.emplace_back(list);
  }
  content.isWhole = list != nullptr;
}

Content contentOf(std::string_view bytes) {
  Content content;
  ERR_clear_error();
  addInPem(content, bytes);
  if (content.lists.empty()) {
    addInDer(content, bytes);
  }
  if (areErrorsOfMemory()) {
    throw std::bad_alloc();
  }
  return content;
}

}  // namespace

RevocationLists::RevocationLists(X509_STORE* store, std::string_view folders)
    : store_(store), folders_(split(folders)) {
}

std::optional<std::uint64_t> RevocationLists::read(const X509_NAME* issuer) {
  const std::optional<std::string> prefix = prefixOf(issuer);
  if (!prefix) {
    return std::nullopt;
  }
  const std::lock_guard lock(mutex_);
  std::uint64_t last = 0;
  for (const std::string& folder : folders_) {
    for (int number = 0;; ++number) {
      const std::string path = folder + "/" + *prefix + std::to_string(number);
      struct stat status = {};
      if (stat(path.c_str(), &status) == 0) {
        const std::optional<std::uint64_t> version = readFile(path, FileState(status));
        if (!version) {
          trace(TraceLevel::Warning, "the revocation list cannot be read now: " + path);
          return std::nullopt;
        }
        last = std::max(last, *version);
      } else if (isShortage(errno)) {
        return std::nullopt;
      } else if (lstat(path.c_str(), &status) != 0) {
        break;  // not even a link to nowhere
      }
    }
  }
  return last;
}

std::optional<std::uint64_t> RevocationLists::readFile(const std::string& path, const FileState& state) {
  Known& known = known_[path];
  if (known.state == state) {
    return known.version;
  }
  const RegularFile file(path);
  if (!file.isOpen()) {
    return isShortage(file.error()) ? std::nullopt : std::optional(known.version);
  }
  const std::optional<std::string> bytes = file.readAll(std::numeric_limits<int>::max());
  if (!bytes) {
    return std::nullopt;
  }
  const Content content = contentOf(*bytes);
  for (const List& list : content.lists) {
    if (X509_STORE_add_crl(store_, list.get()) != 1) {
      throw std::bad_alloc();
    }
  }
  const std::size_t digest = std::hash<std::string>()(*bytes);
  if (!content.lists.empty() && (digest != known.digest || content.lists.size() != known.lists)) {
    known.version = ++version_;
  }
  known.state = content.isWhole && state.isSettled() ? std::optional(state) : std::nullopt;
  known.digest = digest;
  known.lists = content.lists.size();
  return known.version;
}

}  // namespace foundation
