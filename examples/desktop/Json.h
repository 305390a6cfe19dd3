// The few JSON texts that go between the library and its host.
#pragma once

#include <json/value.h>

#include <string>

namespace example {

// The null value when the text is NULL or no JSON.
Json::Value jsonFrom(const char* text);
std::string compactJson(const Json::Value& value);
std::string indentedJson(const std::string& text);

}  // namespace example
