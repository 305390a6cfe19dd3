// Job files that cannot be used: the exit status is 2, nothing is requested, and the message says where and
// why.

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "Program.h"
#include "Scratch.h"

namespace tooltest {
namespace {

struct Malformed {
  std::string text;
  std::string message;  // after the file's name
};

void PrintTo(const Malformed& malformed, std::ostream* stream) {
  *stream << malformed.message;
}

// A file with one pool "p" and these tasks.
std::string tasks(const std::string& list) {
  return R"({"pools":[{"name":"p","tasks":[)" + list + "]}]}";
}

class MalformedJobFile : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedJobFile, EndsWithTwoAndItsPlace) {
  const Scratch scratch;
  const std::string path = scratch.write("jobs.json", GetParam().text);
  const Finished finished = httppool({"run", path});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.err, "httppool: " + path + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    NotJson, MalformedJobFile,
    testing::Values(Malformed{"", ":1:1: Syntax error: value, object or array expected."},
                    Malformed{"{", ":1:2: Missing '}' or object member name"},
                    Malformed{"{\n \"pools\": [}", ":2:12: Syntax error: value, object or array expected."},
                    Malformed{"7", ":1:1: A valid JSON document must be either an array or an object value."},
                    Malformed{R"({"pools":[]} x)", ":1:14: Extra non-whitespace after JSON value."},
                    Malformed{"/* */ {}", ":1:1: Syntax error: value, object or array expected."},
                    Malformed{tasks(R"({"name":"t","url":"u","url":"v"})"), ":1:54: Duplicate key: 'url'"},
                    Malformed{std::string("{\"\xff\":1}"), ": not UTF-8"},
                    Malformed{std::string(5000, '['), ": Exceeded stackLimit in readValue()."}));

INSTANTIATE_TEST_SUITE_P(
    WrongPool, MalformedJobFile,
    testing::Values(
        Malformed{"[]", ":1:1: must be an object"}, Malformed{"{}", ":1:1: \"pools\" is missing"},
        Malformed{R"({"pool":[]})", ":1:9: unknown field \"pool\""},
        Malformed{R"({"pools":{}})", ":1:10: \"pools\" must be an array"},
        Malformed{R"({"pools":[]})", ":1:10: \"pools\" is empty"},
        Malformed{R"({"pools":[1]})", ":1:11: pool 1: must be an object"},
        Malformed{R"({"pools":[{"tasks":[]}]})", ":1:11: pool 1: \"name\" is missing"},
        Malformed{R"({"pools":[{"name":""}]})", ":1:19: pool 1: \"name\" is empty"},
        Malformed{R"({"pools":[{"name":"p"}]})", ":1:11: pool \"p\": \"tasks\" is missing"},
        Malformed{R"({"pools":[{"name":"p","tasks":[]}]})", ":1:31: pool \"p\": \"tasks\" is empty"},
        Malformed{R"({"pools":[{"name":"p","tasks":[{"name":"t","url":"u"}]},{"name":"p","tasks":[]}]})",
                  ":1:65: pool \"p\": there is a pool of that name already"}));

INSTANTIATE_TEST_SUITE_P(
    WrongTask, MalformedJobFile,
    testing::Values(
        Malformed{tasks(R"({"url":"u"})"), ":1:32: pool \"p\", task 1: \"name\" is missing"},
        Malformed{tasks(R"({"name":"t"})"), ":1:32: pool \"p\", task \"t\": \"url\" is missing"},
        Malformed{tasks("\n{\"name\":\"t\",\"url\":1}"),
                  ":2:19: pool \"p\", task \"t\": \"url\" must be a string"},
        Malformed{tasks(R"({"name":"t","url":"u","ulr":"u"})"),
                  ":1:60: pool \"p\", task 1: unknown field \"ulr\""},
        Malformed{tasks(R"({"name":"t","url":"u"},{"name":"t","url":"u"})"),
                  ":1:63: pool \"p\", task \"t\": the pool has a task of that name already"},
        Malformed{tasks(R"({"name":"t","url":"u\u0000"})"),
                  ":1:32: pool \"p\", task \"t\": \"u\\x00\" has a zero character or is not UTF-8"},
        Malformed{tasks(R"({"name":"t","url":"u","method":"A B"})"),
                  ":1:32: pool \"p\", task \"t\": \"A B\" is not a method"},
        Malformed{tasks(R"({"name":"t","url":"u","headers":[]})"),
                  ":1:64: pool \"p\", task \"t\": \"headers\" must be an object"},
        Malformed{tasks(R"({"name":"t","url":"u","headers":{"X":1}})"),
                  ":1:69: pool \"p\", task \"t\": the value of header field \"X\" must be a string"},
        Malformed{tasks(R"({"name":"t","url":"u","post":"x","dataFile":"/dev/null"})"),
                  ":1:32: pool \"p\", task \"t\": a text body and a file of bytes are both given"},
        Malformed{tasks(R"({"name":"t","url":"u","post":"x","download":"f"})"),
                  ":1:32: pool \"p\", task \"t\": a body and a download file are both given: a download is "
                  "asked for "
                  "without a body"},
        Malformed{tasks(R"({"name":"t","url":"u","dataFile":"/no/such/file"})"),
                  ":1:65: pool \"p\", task \"t\": cannot read /no/such/file: No such file or directory"},
        Malformed{tasks(R"({"name":"t","url":"u","download":"/no/such/f"})"),
                  ":1:65: pool \"p\", task \"t\": cannot write /no/such/f: No such file or directory"},
        Malformed{
            tasks(R"({"name":"t","url":"u","download":"/tmp/f"},{"name":"s","url":"u","download":"/tmp/f"})"),
            ":1:108: pool \"p\", task \"s\": \"/tmp/f\" is the file of another task already"}));

TEST(MissingJobFile, EndsWithTwoAndItsName) {
  const Finished finished = httppool({"run", "/no/such/jobs.json"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.err, "httppool: cannot read /no/such/jobs.json: No such file or directory\n");
}

}  // namespace
}  // namespace tooltest
