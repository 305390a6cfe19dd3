#include "foundation/files/PropertyList.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

#include "foundation/base/Release.h"
#include "foundation/files/PropertyListBounds.h"

namespace foundation {
namespace {

using Node = std::unique_ptr<void, Release<plist_free>>;
using Text = std::unique_ptr<char, Release<free>>;

std::optional<Value> valueOf(plist_t node);

std::string textOf(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text != nullptr ? std::string(text, length) : std::string();
}

std::optional<Value> arrayOf(plist_t node) {
  void* position = nullptr;
  plist_array_new_iter(node, &position);
  const Text owner(static_cast<char*>(position));
  Array array;
  for (std::uint32_t left = plist_array_get_size(node); left > 0; --left) {
    plist_t item = nullptr;
    plist_array_next_item(node, position, &item);
    std::optional<Value> value = valueOf(item);
    if (!value) {
      return std::nullopt;
    }
    array.push_back(std::move(*value));
  }
  return array;
}

std::optional<Value> dictionaryOf(plist_t node) {
  const std::uint32_t size = plist_dict_get_size(node);
  if (size > PropertyListBounds::kMostEntries) {
    return std::nullopt;
  }
  void* position = nullptr;
  plist_dict_new_iter(node, &position);
  const Text owner(static_cast<char*>(position));
  Dictionary dictionary;
  for (std::uint32_t left = size; left > 0; --left) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, position, &key, &item);
    const Text name(key);
    std::optional<Value> value = key != nullptr ? valueOf(item) : std::nullopt;
    if (!value) {
      return std::nullopt;
    }
    dictionary.set(key, std::move(*value));
  }
  return dictionary;
}

std::optional<Value> valueOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return value != 0;
    }
    case PLIST_UINT: {
      std::uint64_t value = 0;
      plist_get_uint_val(node, &value);
      return static_cast<std::int64_t>(value);
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return value;
    }
    case PLIST_STRING:
      return textOf(node);
    case PLIST_ARRAY:
      return arrayOf(node);
    case PLIST_DICT:
      return dictionaryOf(node);
    case PLIST_DATE:
    case PLIST_DATA:
    case PLIST_UID:
      return Value();
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<Value> propertyListFromData(std::string_view data) {
  const bool isBinary = data.starts_with("bplist00");
  if (!(isBinary ? isBoundedBinaryPropertyList(data) : isBoundedXmlPropertyList(data))) {
    return std::nullopt;
  }
  plist_t root = nullptr;
  const auto length = static_cast<std::uint32_t>(data.size());
  if (isBinary) {
    plist_from_bin(data.data(), length, &root);
  } else {
    plist_from_xml(data.data(), length, &root);
  }
  const Node owner(root);
  return root != nullptr ? valueOf(root) : std::nullopt;
}

std::optional<Value> propertyListFromFile(const std::string& path, std::size_t maxBytes) {
  return propertyListFromFile(RegularFile(path), maxBytes);
}

std::optional<Value> propertyListFromFile(const RegularFile& file, std::size_t maxBytes) {
  const std::optional<std::string> bytes = file.isOpen() ? file.readAll(maxBytes) : std::nullopt;
  return bytes ? propertyListFromData(*bytes) : std::nullopt;
}

}  // namespace foundation
