// Property lists: XML and binary ones, and hostile ones of both kinds.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "foundation/files/PropertyList.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {
namespace {

std::string repeat(const std::string& text, std::size_t times) {
  std::string all;
  for (std::size_t i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

std::string xml(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Example//DTD PLIST 1.0//EN\" "
         "\"http://example.test/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\">" +
         content + "</plist>\n";
}

/// An array nested in arrays, that many in all, and the plist element around them.
std::string nestedXml(std::size_t arrays) {
  return "<plist version=\"1.0\">" + repeat("<array>", arrays) + repeat("</array>", arrays) + "</plist>";
}

std::string bigEndian(std::uint64_t number, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    text += static_cast<char>(number >> shift & 0xFF);
  }
  return text;
}

/// A binary list with references of two bytes; the first object is the root.
std::string binary(const std::vector<std::string>& objects) {
  std::string list = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += bigEndian(list.size(), 4);
    list += object;
  }
  const std::uint64_t tableAt = list.size();
  return list + table + std::string("\0\0\0\0\0\0\4\2", 8) + bigEndian(objects.size(), 8) + bigEndian(0, 8) +
         bigEndian(tableAt, 8);
}

std::string shortText(const std::string& text) {
  return std::string(1, static_cast<char>(0x50 + text.size())) + text;
}

/// Up to 14 elements.
std::string array(const std::vector<unsigned>& references) {
  std::string object(1, static_cast<char>(0xA0 + references.size()));
  for (const unsigned reference : references) {
    object += bigEndian(reference, 2);
  }
  return object;
}

/// Up to 14 entries: all keys, then all values.
std::string dictionary(const std::vector<unsigned>& keysAndValues) {
  std::string object = array(keysAndValues);
  object[0] = static_cast<char>(0xD0 + keysAndValues.size() / 2);
  return object;
}

TEST(PropertyList, ReadsEveryTypeOfAnXmlList) {
  const auto value = propertyListFromData(xml(R"(<dict>
    <!-- a comment with </dict> in it -->
    <key>zebra</key><true/>
    <key>apple</key><false/>
    <key>integer</key><integer>-42</integer>
    <key>large</key><integer>9223372036854775807</integer>
    <key>real</key><real>0.5</real>
    <key>text</key><string>a &lt; b &amp; "ä"</string>
    <key>empty</key><string></string>
    <key>literal</key><string><![CDATA[<dict>]]></string>
    <key>array</key><array><integer>1</integer><array/><dict/></array>
    <key>date</key><date>2024-05-01T12:00:00Z</date>
    <key>data</key><data>MTIz</data>
  </dict>)"));
  const Dictionary expected = {{"zebra", true},
                               {"apple", false},
                               {"integer", -42},
                               {"large", std::numeric_limits<std::int64_t>::max()},
                               {"real", 0.5},
                               {"text", "a < b & \"\xC3\xA4\""},
                               {"empty", ""},
                               {"literal", "<dict>"},
                               {"array", Array{1, Array{}, Dictionary{}}},
                               {"date", Value()},
                               {"data", Value()}};
  ASSERT_TRUE(value);
  ASSERT_NE(value->dictionary(), nullptr);
  EXPECT_EQ(*value->dictionary(), expected);
}

TEST(PropertyList, ReadsEveryTypeOfABinaryList) {
  const std::string real = "\x23" + std::string("\x3F\xE0\0\0\0\0\0\0", 8);
  const std::string date = "\x33" + std::string("\x41\xC5\0\0\0\0\0\0", 8);
  const std::string utf16 = "\x62" + std::string("\0\xE4\0\x62", 4);
  const auto value = propertyListFromData(
      binary({dictionary({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}),
              shortText("yes"),
              shortText("no"),
              shortText("integer"),
              shortText("negative"),
              shortText("real"),
              shortText("text"),
              shortText("wide"),
              shortText("array"),
              shortText("others"),
              "\x09",
              "\x08",
              "\x11\x01\x02",
              "\x13" + bigEndian(static_cast<std::uint64_t>(-5), 8),
              real,
              shortText("ASCII"),
              utf16,
              array({12, 15}),
              array({19, 20, 21}),
              date,
              std::string("\x42\0\1", 3),
              std::string("\x80\x07", 2)}));
  const Dictionary expected = {{"yes", true},
                               {"no", false},
                               {"integer", 0x102},
                               {"negative", -5},
                               {"real", 0.5},
                               {"text", "ASCII"},
                               {"wide",
                                "\xC3\xA4"
                                "b"},
                               {"array", Array{0x102, "ASCII"}},
                               {"others", Array{Value(), Value(), Value()}}};
  ASSERT_TRUE(value);
  ASSERT_NE(value->dictionary(), nullptr);
  EXPECT_EQ(*value->dictionary(), expected);
}

TEST(PropertyList, HasAnyRoot) {
  EXPECT_EQ(propertyListFromData(xml("<array><true/></array>")), Value(Array{true}));
  EXPECT_EQ(propertyListFromData(xml("<string>only</string>")), Value("only"));
  EXPECT_EQ(propertyListFromData(xml("<integer>7</integer>")), Value(7));
  EXPECT_EQ(propertyListFromData(binary({shortText("only")})), Value("only"));
  EXPECT_EQ(propertyListFromData(binary({"\x09"})), Value(true));
}

TEST(PropertyList, IsNothingWhenMalformed) {
  const std::string good = xml("<dict><key>a</key><string>b</string></dict>");
  ASSERT_TRUE(propertyListFromData(good));
  const std::vector<std::string> texts = {
      "",
      " ",
      "garbage",
      "{\"json\": true}",
      "<",
      "<plist>",
      "<plist/>",
      "<plist></plist>",
      "<plist><dict></plist></dict>",
      "<plist><dict></array></plist>",
      "</plist>",
      "<!--",
      "<?xml",
      "<plist><string><![CDATA[a</string></plist>",
      "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>c</string></plist>",
      xml("<unheard/>"),
      xml("<dict><string>value without key</string></dict>"),
      std::string("\0\0\0\0", 4),
      xml(std::string("<string>a\0b</string>", 20)),
      xml("<string>a&#0;b</string>"),
      xml("<dict><key>a&#0;b</key><true/></dict>"),
      xml("<dict><key>a&#x0;b</key><true/></dict>"),
      binary({std::string("\x53"
                          "a\0b",
                          4)}),
      binary({std::string("\x62\0a\0\0", 5)}),
      binary({dictionary({1, 2}),
              std::string("\x53"
                          "a\0b",
                          4),
              "\x09"}),
  };
  for (const std::string& text : texts) {
    EXPECT_FALSE(propertyListFromData(text)) << text;
  }
}

TEST(PropertyList, IsNothingWhenCutShort) {
  const std::string text =
      xml("<dict><key>a</key><array><string>b</string><integer>1</integer></array></dict>");
  ASSERT_TRUE(propertyListFromData(text));
  const std::size_t root = text.find("</plist>") + 8;
  for (std::size_t length = 0; length < root; ++length) {
    EXPECT_FALSE(propertyListFromData(text.substr(0, length))) << length;
  }
  const std::string list = binary({dictionary({1, 2}), shortText("a"), array({1, 1})});
  ASSERT_TRUE(propertyListFromData(list));
  for (std::size_t length = 0; length < list.size(); ++length) {
    EXPECT_FALSE(propertyListFromData(list.substr(0, length))) << length;
  }
}

TEST(PropertyList, SurvivesEveryChangedByteOfABinaryList) {
  const std::string list = binary({dictionary({1, 2, 3, 4}), shortText("a"), shortText("b"), array({1, 5}),
                                   "\x09", "\x13" + bigEndian(77, 8)});
  ASSERT_TRUE(propertyListFromData(list));
  std::size_t different = 0;
  for (std::size_t at = 0; at < list.size(); ++at) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string changed = list;
      changed[at] = static_cast<char>(byte);
      different += propertyListFromData(changed) != propertyListFromData(list) ? 1 : 0;
    }
  }
  EXPECT_GT(different, 0U);
}

TEST(PropertyList, NestsToALimit) {
  EXPECT_TRUE(propertyListFromData(nestedXml(511)));
  EXPECT_FALSE(propertyListFromData(nestedXml(512)));
  EXPECT_FALSE(propertyListFromData(nestedXml(60'000)));
  EXPECT_FALSE(propertyListFromData("<plist>" + repeat("<array>", 140'000)));
  EXPECT_FALSE(propertyListFromData("<plist>" + repeat("<dict><key>a</key>", 60'000)));
  const auto nestedBinary = [](unsigned arrays) {
    std::vector<std::string> objects;
    for (unsigned i = 1; i < arrays; ++i) {
      objects.push_back(array({i}));
    }
    objects.push_back(array({}));
    return binary(objects);
  };
  EXPECT_TRUE(propertyListFromData(nestedBinary(512)));
  EXPECT_FALSE(propertyListFromData(nestedBinary(513)));
  EXPECT_FALSE(propertyListFromData(nestedBinary(60'000)));
}

TEST(PropertyList, RefusesBinaryListsThatGrowWithoutEnd) {
  EXPECT_FALSE(propertyListFromData(binary({array({0})})));
  EXPECT_FALSE(propertyListFromData(binary({array({1}), array({0})})));
  // Ten elements, each of ten elements, and so on, in a few hundred bytes.
  std::vector<std::string> objects;
  for (unsigned level = 1; level <= 12; ++level) {
    objects.push_back(array(std::vector<unsigned>(10, level)));
  }
  objects.emplace_back("\x09");
  EXPECT_FALSE(propertyListFromData(binary(objects)));
  // One long text, many times.
  const std::string longText = "\x5F\x12" + bigEndian(1 << 18, 4) + std::string(1 << 18, 'x');
  EXPECT_TRUE(propertyListFromData(binary({array({1, 1, 1}), longText})));
  EXPECT_FALSE(propertyListFromData(binary({array({1, 1, 1, 1, 1}), longText})));
}

// libplist reads sets as dictionaries, so they have to be measured like them.
TEST(PropertyList, MeasuresSetsLikeDictionaries) {
  const auto set = [](const std::vector<unsigned>& keysAndValues) {
    std::string object = dictionary(keysAndValues);
    object[0] = static_cast<char>(0xC0 + keysAndValues.size() / 2);
    return object;
  };
  const std::string zero = std::string("\x53") + std::string("a\0b", 3);
  EXPECT_FALSE(propertyListFromData(binary({set({1, 2}), zero, "\x09"})));
  EXPECT_FALSE(propertyListFromData(binary({set({1, 2}), shortText("a"), zero})));
  EXPECT_FALSE(propertyListFromData(binary({set({1, 0}), shortText("a")})));
  const auto nested = [&](unsigned sets) {
    std::vector<std::string> objects = {array({2}), shortText("a")};
    for (unsigned i = 0; i < sets; ++i) {
      objects.push_back(set({1, i + 3}));
    }
    objects.emplace_back("\x09");
    return binary(objects);
  };
  EXPECT_TRUE(propertyListFromData(nested(500)));
  EXPECT_FALSE(propertyListFromData(nested(60'000)));
  std::vector<std::string> growing;
  for (unsigned level = 1; level <= 12; ++level) {
    growing.push_back(set({13, level, 14, level, 15, level, 16, level, 17, level, 18, level}));
  }
  growing.insert(growing.end(), {"\x09", shortText("a"), shortText("b"), shortText("c"), shortText("d"),
                                 shortText("e"), shortText("f")});
  EXPECT_FALSE(propertyListFromData(binary(growing)));
}

TEST(PropertyList, RefusesImmenseLists) {
  constexpr std::size_t kMost = 1 << 20;
  const std::string text = xml("<string>x</string>");
  EXPECT_TRUE(propertyListFromData(text + std::string(kMost - text.size(), '\n')));
  EXPECT_FALSE(propertyListFromData(text + std::string(kMost - text.size() + 1, '\n')));
  const auto dictionaryOf = [](int entries) {
    std::string content;
    for (int i = 0; i < entries; ++i) {
      content += "<key>" + std::to_string(i) + "</key><true/>";
    }
    return propertyListFromData(xml("<dict>" + content + "</dict>"));
  };
  const auto large = dictionaryOf(10'000);
  ASSERT_TRUE(large);
  ASSERT_NE(large->dictionary(), nullptr);
  EXPECT_EQ(large->dictionary()->size(), 10'000U);
  EXPECT_FALSE(dictionaryOf(10'001));
}

TEST(PropertyList, IsReadFromARegularFile) {
  const test::TemporaryFolder folder;
  const std::string path = folder.file("list.plist");
  const std::string text = xml("<string>x</string>");
  test::writeFile(path, text);
  EXPECT_EQ(propertyListFromFile(path, text.size()), Value("x"));
  EXPECT_FALSE(propertyListFromFile(path, text.size() - 1));
  EXPECT_FALSE(propertyListFromFile(path, 0));
  ASSERT_EQ(symlink("list.plist", folder.file("link").c_str()), 0);
  EXPECT_EQ(propertyListFromFile(folder.file("link"), text.size()), Value("x"));
  EXPECT_FALSE(propertyListFromFile(folder.file("missing"), 1000));
  EXPECT_FALSE(propertyListFromFile(folder.path(), 1000));
  EXPECT_FALSE(propertyListFromFile("/dev/zero", 1000));
}

TEST(PropertyList, LeavesAPipeAlone) {
  const test::TemporaryFolder folder;
  const std::string path = folder.file("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  // Opening it must not wait for a writer.
  EXPECT_FALSE(propertyListFromFile(path, 1000));
  const int pipe = open(path.c_str(), O_RDWR | O_NONBLOCK);
  ASSERT_GE(pipe, 0);
  const std::string text = xml("<string>x</string>");
  ASSERT_EQ(write(pipe, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  EXPECT_FALSE(propertyListFromFile(path, 1000));
  std::string left(text.size() + 1, '\0');
  EXPECT_EQ(read(pipe, left.data(), left.size()), static_cast<ssize_t>(text.size()));
  close(pipe);
}

}  // namespace
}  // namespace foundation
