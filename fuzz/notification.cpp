// What a host posts with a notification: the JSON text of an object. An observer gets it as text again. jsoncpp reads
// both, too.

#include <glib.h>
#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/ZEP_Foundation.h"
#include "foundation/base/JsonText.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using foundation::Dictionary;
using foundation::Value;

constexpr const char* kName = "Fuzzed";
constexpr std::size_t kDeepestNesting = 512;

struct Observed {
  int times = 0;
  const void* object = nullptr;
  std::optional<std::string> text;
};

void observe(const char* name, const void* object, const char* userInfo, void* context) {
  auto& observed = *static_cast<Observed*>(context);
  require(std::string_view(name) == kName);
  ++observed.times;
  observed.object = object;
  observed.text = userInfo != nullptr ? std::optional<std::string>(userInfo) : std::nullopt;
}

Observed posted(const std::string& text, long expected) {
  Observed observed;
  const long token = ZEP_Notification_AddObserver(kName, &observe, &observed);
  require(token > 0);
  require(ZEP_Notification_Post(kName, &observed, text.c_str()) == expected);
  require(ZEP_Notification_RemoveObserver(token) == 0);
  require(ZEP_Notification_RemoveObserver(token) == -1);
  return observed;
}

bool isUtf8(std::string_view text) {
  return g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE ||
         text.find('\0') != std::string_view::npos;
}

std::size_t depthOf(const Value& value) {
  std::size_t deepest = 0;
  if (value.array() != nullptr) {
    for (const Value& element : *value.array()) {
      deepest = std::max(deepest, depthOf(element));
    }
    return deepest + 1;
  }
  if (value.dictionary() == nullptr) {
    return 0;
  }
  for (const auto& [key, entry] : value.dictionary()->entries()) {
    require(isUtf8(key));
    deepest = std::max(deepest, depthOf(entry));
  }
  return deepest + 1;
}

/// The other reader's value is the same one.
void checkSame(const Value& value, const Json::Value& other) {
  if (value.dictionary() != nullptr) {
    require(other.isObject() && other.size() == value.dictionary()->size());
    for (const auto& [key, entry] : value.dictionary()->entries()) {
      require(other.isMember(key));
      checkSame(entry, other[key]);
    }
  } else if (value.array() != nullptr) {
    require(other.isArray() && other.size() == value.array()->size());
    for (Json::ArrayIndex i = 0; i < other.size(); ++i) {
      checkSame((*value.array())[i], other[i]);
    }
  } else if (value.text() != nullptr) {
    require(other.isString() && other.asString() == *value.text());
  } else if (value.boolean() != nullptr) {
    require(other.isBool() && other.asBool() == *value.boolean());
  } else if (value.integer() != nullptr) {
    require(other.isInt64() ? other.asInt64() == *value.integer()
                            : other.isDouble() && other.asDouble() == static_cast<double>(*value.integer()));
  } else if (value.real() != nullptr) {
    require(other.isNumeric() && other.asDouble() == *value.real());
  } else {
    require(other.isNull());
  }
}

void checkOtherReader(std::string_view text, const Dictionary& dictionary) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) {
    text.remove_prefix(kByteOrderMark.size());
  }
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["rejectDupKeys"] = false;
  builder["stackLimit"] = static_cast<int>(2 * kDeepestNesting);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  require(reader->parse(text.data(), text.data() + text.size(), &root, nullptr));
  checkSame(Value(dictionary), root);
}

void checkPost(const std::string& text) {
  const auto dictionary = foundation::dictionaryFromJsonText(text);
  const Observed observed = posted(text, dictionary ? 0 : -2);
  require(observed.times == (dictionary ? 1 : 0));
  if (!dictionary) {
    return;
  }
  require(observed.object != nullptr && observed.text.has_value() && isUtf8(*observed.text));
  require(depthOf(Value(*dictionary)) <= kDeepestNesting);
  require(foundation::dictionaryFromJsonText(*observed.text) == dictionary);
  require(posted(*observed.text, 0).text == observed.text);
  checkOtherReader(text, *dictionary);
  checkOtherReader(*observed.text, *dictionary);
}

/// Texts of a server, and numbers that JSON does not have, become the text of an object all the same.
void checkWritten(std::string_view bytes) {
  const Dictionary dictionary = {{std::string(bytes), Value(bytes)},
                                 {"number", Value(std::numeric_limits<double>::quiet_NaN())},
                                 {"list", Value(foundation::Array{Value(bytes), Value(HUGE_VAL)})}};
  const std::string text = foundation::jsonText(dictionary);
  require(g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE);
  const auto again = foundation::dictionaryFromJsonText(text);
  require(again.has_value() && foundation::jsonText(*again) == text);
  const Value* number = again->find("number");
  require(number != nullptr && (number->isNull() || bytes == "number"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = textOf(data, size);
  const bool hasZero = bytes.find('\0') != std::string_view::npos;
  require(!hasZero || !foundation::dictionaryFromJsonText(bytes));
  checkPost(std::string(bytes.substr(0, bytes.find('\0'))));
  checkWritten(bytes);
  return 0;
}
