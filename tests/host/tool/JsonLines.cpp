#include "JsonLines.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <memory>
#include <sstream>

namespace tooltest {

std::vector<Json::Value> jsonLines(const std::string& text) {
  EXPECT_TRUE(text.empty() || text.ends_with("\n")) << text;
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::vector<Json::Value> values;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::string error;
    Json::Value& value = values.emplace_back();
    EXPECT_TRUE(reader->parse(line.data(), line.data() + line.size(), &value, &error)) << error << line;
    EXPECT_TRUE(value.isObject()) << line;
  }
  return values;
}

}  // namespace tooltest
