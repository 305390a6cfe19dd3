// Property lists, XML and binary. What is read is written in both forms and has to be read the same again.

#include <glib.h>
#include <plist/plist.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/files/PropertyList.h"
#include "foundation/files/PropertyListBounds.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using foundation::Dictionary;
using foundation::PropertyListBounds;
using foundation::Value;

/// What has to hold of a value, and whether it can be written so that it stays what it is.
class Check {
 public:
  void value(const Value& value, std::size_t depth) {
    bytes_ += 1;
    checkTruth(value);
    if (const std::string* content = value.text()) {
      text(*content);
    } else if (const double* real = value.real()) {
      isWritable_ = isWritable_ && std::isfinite(*real);
    } else if (const foundation::Array* array = value.array()) {
      require(depth <= PropertyListBounds::kDeepestNesting);
      for (const Value& element : *array) {
        this->value(element, depth + 1);
      }
    } else if (const Dictionary* dictionary = value.dictionary()) {
      require(depth <= PropertyListBounds::kDeepestNesting);
      require(dictionary->size() <= PropertyListBounds::kMostEntries);
      for (const auto& [key, entry] : dictionary->entries()) {
        text(key);
        this->value(entry, depth + 1);
      }
    }
  }

  std::size_t bytes() const { return bytes_; }
  bool isWritable() const { return isWritable_; }

 private:
  void text(const std::string& content) {
    require(content.find('\0') == std::string::npos);
    isWritable_ = isWritable_ && g_utf8_validate(content.c_str(), -1, nullptr) != FALSE;
    bytes_ += content.size();
  }

  static void checkTruth(const Value& value) {
    bool isTrue = false;
    if (const std::string* text = value.text()) {
      const char* rest = text->c_str();
      while (*rest == ' ' || (*rest >= '\t' && *rest <= '\r') || *rest == '+' || *rest == '-' ||
             *rest == '0') {
        ++rest;
      }
      isTrue = *rest == 'Y' || *rest == 'y' || *rest == 'T' || *rest == 't' || (*rest >= '1' && *rest <= '9');
    } else if (value.boolean() != nullptr) {
      isTrue = *value.boolean();
    } else if (value.integer() != nullptr) {
      isTrue = *value.integer() != 0;
    } else if (value.real() != nullptr) {
      isTrue = !(*value.real() == 0);
    }
    require(value.boolValue() == isTrue);
  }

  std::size_t bytes_ = 0;
  bool isWritable_ = true;
};

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    result += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
  }
  return result;
}

std::string xml(const Value& value) {
  if (value.isNull()) {
    return "<data></data>";
  }
  if (value.boolean() != nullptr) {
    return *value.boolean() ? "<true/>" : "<false/>";
  }
  if (value.integer() != nullptr) {
    return "<integer>" + std::to_string(*value.integer()) + "</integer>";
  }
  if (value.real() != nullptr) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "<real>%.17g</real>", *value.real());
    return text.data();
  }
  if (value.text() != nullptr) {
    return "<string>" + escaped(*value.text()) + "</string>";
  }
  std::string text;
  if (value.array() != nullptr) {
    for (const Value& element : *value.array()) {
      text += xml(element);
    }
    return "<array>" + text + "</array>";
  }
  for (const auto& [key, entry] : value.dictionary()->entries()) {
    text += "<key>" + escaped(key) + "</key>" + xml(entry);
  }
  return "<dict>" + text + "</dict>";
}

plist_t node(const Value& value) {
  if (value.boolean() != nullptr) {
    return plist_new_bool(*value.boolean() ? 1 : 0);
  }
  if (value.integer() != nullptr) {
    return plist_new_uint(static_cast<std::uint64_t>(*value.integer()));
  }
  if (value.real() != nullptr) {
    return plist_new_real(*value.real());
  }
  if (value.text() != nullptr) {
    return plist_new_string(value.text()->c_str());
  }
  if (value.array() != nullptr) {
    plist_t array = plist_new_array();
    for (const Value& element : *value.array()) {
      plist_array_append_item(array, node(element));
    }
    return array;
  }
  if (value.dictionary() != nullptr) {
    plist_t dictionary = plist_new_dict();
    for (const auto& [key, entry] : value.dictionary()->entries()) {
      plist_dict_set_item(dictionary, key.c_str(), node(entry));
    }
    return dictionary;
  }
  return plist_new_data("", 0);
}

std::string binary(const Value& value) {
  const std::unique_ptr<void, decltype(&plist_free)> root(node(value), plist_free);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(root.get(), &bytes, &length);
  std::string text(bytes, length);
  plist_to_bin_free(bytes);
  return text;
}

/// Within the bounds the same, beyond them nothing.
void checkAgain(const std::string& text, const Value& value) {
  const auto again = foundation::propertyListFromData(text);
  require(again ? *again == value : text.size() > PropertyListBounds::kMostBytes / 2);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto value = foundation::propertyListFromData(textOf(data, size));
  if (!value) {
    return 0;
  }
  require(size <= PropertyListBounds::kMostBytes);
  Check check;
  check.value(*value, 1);
  require(check.bytes() <= 2 * PropertyListBounds::kMostBytes);
  if (check.isWritable()) {
    checkAgain("<plist version=\"1.0\">" + xml(*value) + "</plist>", *value);
    checkAgain(binary(*value), *value);
  }
  return 0;
}
