#include "foundation/files/PropertyListBounds.h"

#include <cstdint>
#include <optional>

namespace foundation {
namespace {

/// The elements of an XML text, open ones counted.
class XmlMeasure {
 public:
  explicit XmlMeasure(std::string_view text) : rest_(text) {}

  bool isBounded() {
    while (skipTo("<")) {
      if (!readMarkup()) {
        return false;
      }
    }
    return open_ == 0;
  }

 private:
  /// Behind the next occurrence; false when there is none.
  bool skipTo(std::string_view mark) {
    const std::size_t at = rest_.find(mark);
    rest_.remove_prefix(at != std::string_view::npos ? at + mark.size() : rest_.size());
    return at != std::string_view::npos;
  }
  bool skip(std::string_view mark) {
    const bool isNext = rest_.starts_with(mark);
    rest_.remove_prefix(isNext ? mark.size() : 0);
    return isNext;
  }

  /// What follows a "<".
  bool readMarkup() {
    if (skip("!--")) {
      return skipTo("-->");
    }
    if (skip("![CDATA[")) {
      return skipTo("]]>");
    }
    if (skip("?")) {
      return skipTo("?>");
    }
    const std::string_view tag = rest_.substr(0, rest_.find('>'));
    if (!skipTo(">")) {
      return false;
    }
    if (tag.starts_with('!')) {
      return tag.find('[') == std::string_view::npos;
    }
    return readTag(tag);
  }

  bool readTag(std::string_view tag) {
    if (tag.ends_with('/')) {
      return true;
    }
    if (!tag.starts_with('/')) {
      return ++open_ <= PropertyListBounds::kDeepestNesting;
    }
    // Whether it closes the right one is libplist's to say: it reads no further when it does not.
    return open_-- > 0;
  }

  std::string_view rest_;
  std::size_t open_ = 0;
};

/// The objects of a binary list: eight bytes "bplist00", the objects, a table of their offsets, and a trailer of
/// 32 bytes that ends in the table's description.
class BinaryMeasure {
 public:
  explicit BinaryMeasure(std::string_view data) : data_(data) {}

  bool isBounded() {
    constexpr std::size_t kTrailer = 32;
    constexpr std::size_t kHeader = 8;
    if (data_.size() < kHeader + kTrailer) {
      return false;
    }
    const std::size_t trailer = data_.size() - kTrailer;
    offsetSize_ = *number(trailer + 6, 1);
    referenceSize_ = *number(trailer + 7, 1);
    objects_ = *number(trailer + 8, 8);
    const std::uint64_t root = *number(trailer + 16, 8);
    table_ = *number(trailer + 24, 8);
    return isSize(offsetSize_) && isSize(referenceSize_) && table_ <= trailer &&
           objects_ <= (trailer - table_) / offsetSize_ && measure(root, 1);
  }

 private:
  /// An object's head: its kind, its count, and where its content begins.
  struct Head {
    unsigned kind = 0;
    std::uint64_t count = 0;
    std::uint64_t content = 0;
  };

  static bool isSize(std::uint64_t size) { return size >= 1 && size <= 8; }

  /// A number in network byte order; nothing when it does not lie inside.
  std::optional<std::uint64_t> number(std::uint64_t at, std::uint64_t size) const {
    if (at > data_.size() || size > data_.size() - at) {
      return std::nullopt;
    }
    std::uint64_t value = 0;
    for (const char byte : data_.substr(at, size)) {
      value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
  }

  std::optional<Head> head(std::uint64_t at) const {
    const auto marker = number(at, 1);
    if (!marker) {
      return std::nullopt;
    }
    Head head = {.kind = static_cast<unsigned>(*marker >> 4), .count = *marker & 0xF, .content = at + 1};
    constexpr unsigned kFirstCounted = 4;
    constexpr std::uint64_t kCountFollows = 0xF;
    if (head.kind >= kFirstCounted && head.count == kCountFollows) {
      const auto size = number(head.content, 1);
      const std::uint64_t length = size ? std::uint64_t{1} << (*size & 0xF) : 0;
      const auto count = length <= 8 ? number(head.content + 1, length) : std::nullopt;
      if (!size || *size >> 4 != 1 || !count) {
        return std::nullopt;
      }
      head.count = *count;
      head.content += 1 + length;
    }
    return head;
  }

  /// Adds what the object and all it refers to come to.
  bool measure(std::uint64_t object, std::size_t depth) {
    if (object >= objects_ || depth > PropertyListBounds::kDeepestNesting) {
      return false;
    }
    const auto offset = number(table_ + object * offsetSize_, offsetSize_);
    const auto found = offset ? head(*offset) : std::nullopt;
    constexpr std::size_t kObject = 16;
    if (!found || found->count > data_.size() || !add(kObject)) {
      return false;
    }
    constexpr unsigned kAscii = 5;
    constexpr unsigned kUtf16 = 6;
    constexpr unsigned kArray = 0xA;
    constexpr unsigned kSet = 0xC;  // libplist reads it as a dictionary
    constexpr unsigned kDictionary = 0xD;
    switch (found->kind) {
      case kArray:
        return measureReferences(found->content, found->count, depth);
      case kSet:
      case kDictionary:
        return found->count <= PropertyListBounds::kMostEntries &&
               measureReferences(found->content, 2 * found->count, depth);
      case kAscii:
        return measureText(found->content, found->count, 1);
      case kUtf16:
        return measureText(found->content, found->count, 2);
      default:
        return add(found->count);
    }
  }

  /// libplist ends the process when it is asked for a text that contains a zero character.
  bool measureText(std::uint64_t at, std::uint64_t characters, std::uint64_t size) {
    if (at > data_.size() || characters * size > data_.size() - at || !add(characters * size)) {
      return false;
    }
    for (std::uint64_t i = 0; i < characters; ++i) {
      if (number(at + i * size, size) == 0) {
        return false;
      }
    }
    return true;
  }

  bool measureReferences(std::uint64_t at, std::uint64_t count, std::size_t depth) {
    for (std::uint64_t i = 0; i < count; ++i) {
      const auto reference = number(at + i * referenceSize_, referenceSize_);
      if (!reference || !measure(*reference, depth + 1)) {
        return false;
      }
    }
    return true;
  }

  bool add(std::uint64_t bytes) {
    bytes_ += bytes;
    return bytes_ <= PropertyListBounds::kMostBytes;
  }

  std::string_view data_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t objects_ = 0;
  std::uint64_t table_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace

bool isBoundedXmlPropertyList(std::string_view text) {
  return text.size() <= PropertyListBounds::kMostBytes && text.find('\0') == std::string_view::npos &&
         XmlMeasure(text).isBounded();
}

bool isBoundedBinaryPropertyList(std::string_view data) {
  return data.size() <= PropertyListBounds::kMostBytes && BinaryMeasure(data).isBounded();
}

}  // namespace foundation
