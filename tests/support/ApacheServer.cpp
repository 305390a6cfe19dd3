#include "tests/support/ApacheServer.h"

#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "tests/support/ApacheConfiguration.h"
#include "tests/support/Files.h"
#include "tests/support/FreePort.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/PlainRequest.h"
#include "tests/support/UserFile.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

/// The log writes what is not plain ASCII as \xNN, and a backslash twice.
std::string withoutEscapes(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\\' && text.compare(at + 1, 1, "x") == 0 && at + 3 < text.size()) {
      result.push_back(static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16)));
      at += 3;
    } else {
      at += text[at] == '\\' && at + 1 < text.size() ? 1 : 0;
      result.push_back(text[at]);
    }
  }
  return result;
}

std::string orEmpty(const std::string& field) {
  return field == "-" ? "" : field;
}

long orElse(const std::string& field, long otherwise) {
  return field == "-" ? otherwise : std::stol(field);
}

/// The connection is still the client's port: connections() numbers them.
ApacheServer::Access parseLine(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, '\t');) {
    fields.push_back(field);
  }
  if (fields.size() != 9) {
    throw std::runtime_error("access log: " + line);
  }
  const std::string& requestLine = fields[8];
  const std::size_t first = requestLine.find(' ');
  const std::size_t last = requestLine.rfind(' ');
  const bool isHttp = first != std::string::npos && last != first;
  return {.connection = std::stol(fields[0]),
          .number = orElse(fields[1], 0),
          .method = requestLine.substr(0, first),
          .target = isHttp ? requestLine.substr(first + 1, last - first - 1) : "",
          .protocol = isHttp ? requestLine.substr(last + 1) : "",
          .status = std::stoi(fields[2]),
          .user = withoutEscapes(orEmpty(fields[7])),
          .scheme = orEmpty(fields[5]),
          .authorizationLength = static_cast<std::size_t>(orElse(fields[6], 0)),
          .contentLength = orElse(fields[4], -1),
          .receivedBytes = std::stol(fields[3])};
}

/// Ports come again; a first request, or one on a port not seen before, is a new connection.
void numberConnections(std::vector<ApacheServer::Access>& accesses) {
  std::map<long, long> ofPort;
  long connections = 0;
  for (ApacheServer::Access& one : accesses) {
    long& connection = ofPort[one.connection];
    if (one.number == 1 || connection == 0) {
      connection = ++connections;
    }
    one.connection = connection;
  }
}

}  // namespace

ApacheServer::ApacheServer(const Options& options) {
  for (const char* name : {"none", "run"}) {
    std::filesystem::create_directory(folder_.file(name));
  }
  writeUsers();
  giveToOrdinaryUser(folder_.path());
  // The port was free when the kernel chose it; who loses the race for it tries another.
  constexpr int kAttempts = 10;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (start(options)) {
      return;
    }
  }
  throw std::runtime_error("Apache does not start:\n" + errorLog() + readFile(folder_.file("output.txt")));
}

ApacheServer::~ApacheServer() {
  // Asked to end, it would wait for its clients' idle connections first.
  if (!process_->ended()) {
    kill(process_->id(), SIGKILL);
  }
}

void ApacheServer::writeUsers() const {
  writeBasicUserFile(folder_.file("basic.users"), kBasic.name, kBasic.password);
  writeBasicUserFile(folder_.file("utf8.users"), kUtf8.name, kUtf8.password);
  writeBasicUserFile(folder_.file("second.users"), kSecond.name, kSecond.password);
  writeBasicUserFile(folder_.file("ntlm-basic.users"), kNtlmBasic.name, kNtlmBasic.password);
  writeDigestUserFile(folder_.file("digest.users"), kDigest.name, "Digest realm", kDigest.password);
  std::string lines;
  for (const User& user : {kNtlmAlice, kNtlmBob}) {
    lines += std::string(kDomain) + ":" + user.name + ":" + user.password + "\n";
  }
  writeFile(folder_.file("ntlm.users"), lines);
}

bool ApacheServer::start(const Options& options) {
  port_ = freePort();
  const ApacheConfigurationInput input{
      .folder = folder_.path(), .port = port_, .extraConfiguration = options.extraConfiguration};
  writeFile(folder_.file("httpd.conf"), apacheConfiguration(input));
  writeFile(folder_.file("answers.lua"), apacheScript(input));
  giveToOrdinaryUser(folder_.path());
  // -X: one process, still with all its threads. A process of workers would survive a parent that was killed.
  process_ = std::make_unique<ChildProcess>(ChildProcess::Options{
      .arguments =
          asOrdinaryUser({"/usr/sbin/apache2", "-X", "-d", folder_.path(), "-f", folder_.file("httpd.conf")}),
      .environment = {{"NTLM_USER_FILE", folder_.file("ntlm.users")}},
      .outputFile = folder_.file("output.txt")});
  bool answering = false;
  waitUntil([&] {
    answering = plainGet(port_, "/fixture/alive").ends_with("\r\n\r\n" + folder_.path());
    return answering || process_->ended();
  });
  return answering;
}

std::string ApacheServer::url(const std::string& target) const {
  return "http://127.0.0.1:" + std::to_string(port_) + target;
}

bool ApacheServer::isAtRest() const {
  // A thread writes a request's line before it leaves the states "sending" and "logging". The one that answers
  // this request is sending.
  const std::string answer = plainGet(port_, "/fixture/status?auto");
  const std::string label = "\nScoreboard: ";
  const std::size_t at = answer.find(label);
  if (at == std::string::npos) {
    return false;
  }
  const std::string states = answer.substr(at + label.size(), answer.find('\n', at + 1) - at - label.size());
  return std::ranges::count_if(states, [](char state) { return state == 'W' || state == 'L'; }) == 1;
}

std::vector<ApacheServer::Access> ApacheServer::accesses() {
  if (!waitUntil([this] { return isAtRest(); })) {
    throw std::runtime_error("Apache does not come to rest:\n" + errorLog());
  }
  std::vector<Access> result;
  std::istringstream log(readFile(folder_.file("access.log")));
  for (std::string line; std::getline(log, line) && !log.eof();) {
    result.push_back(parseLine(line));
  }
  numberConnections(result);
  return result;
}

std::vector<ApacheServer::Access> ApacheServer::accesses(const std::string& path) {
  std::vector<Access> result = accesses();
  std::erase_if(result,
                [&path](const Access& one) { return one.target.substr(0, one.target.find('?')) != path; });
  return result;
}

bool ApacheServer::waitForAccesses(const std::string& path, std::size_t count) {
  return waitUntil([&] { return accesses(path).size() >= count; });
}

std::size_t ApacheServer::connectionsOf(const std::vector<Access>& accesses) {
  std::set<long> connections;
  for (const Access& one : accesses) {
    connections.insert(one.connection);
  }
  return connections.size();
}

std::string ApacheServer::errorLog() const {
  const std::string path = folder_.file("error.log");
  return fileExists(path) ? readFile(path) : "";
}

}  // namespace test
