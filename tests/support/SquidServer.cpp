#include "tests/support/SquidServer.h"

#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/Files.h"
#include "tests/support/FreePort.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/PlainRequest.h"
#include "tests/support/SquidConfiguration.h"
#include "tests/support/UserFile.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

constexpr const char* kMark = "/fixture-mark?";

std::string orEmpty(const std::string& field) {
  return field == "-" ? "" : field;
}

SquidServer::Access parseLine(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, ' ');) {
    fields.push_back(field);
  }
  if (fields.size() != 7) {
    throw std::runtime_error("access log: " + line);
  }
  return {.connection = std::stol(fields[0]),
          .method = fields[1],
          .target = fields[6],
          .status = std::stoi(fields[2]),
          .user = orEmpty(fields[4]),
          .scheme = orEmpty(fields[5]),
          .receivedBytes = std::stol(fields[3])};
}

}  // namespace

// The folder's name is like no other, but squid takes letters and digits only.
SquidServer::SquidServer(const Options& options) : name_(std::filesystem::path(folder_.path()).filename()) {
  std::erase(name_, '-');
  std::filesystem::create_directory(folder_.file("samba"));
  writeFile(folder_.file("smb.conf"), sambaConfiguration(folder_.path()));
  const User& user = options.mode == Mode::ReverseNtlm ? kReverseBasic : kForwardBasic;
  if (options.certificate) {
    writeFile(folder_.file("chain.pem"), readFile(options.certificate->chainFile));
    writeFile(folder_.file("key.pem"), readFile(options.certificate->keyFile));
  }
  writeBasicUserFile(folder_.file("basic.users"), user.name, user.password);
  // The port was free when the kernel chose it; who loses the race for it tries another.
  constexpr int kAttempts = 10;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (start(options)) {
      return;
    }
  }
  throw std::runtime_error("squid does not start:\n" + errorLog() + readFile(folder_.file("output.txt")));
}

SquidServer::~SquidServer() {
  // Asked to end, it would take seconds; ended by force, it leaves its shared memory behind.
  if (!process_->ended()) {
    kill(process_->id(), SIGKILL);
    process_->wait();
  }
  std::error_code ignored;
  for (const char* part : {"metadata", "queues", "readers"}) {
    std::filesystem::remove("/dev/shm/" + name_ + "-cf__" + part + ".shm", ignored);
  }
}

bool SquidServer::start(const Options& options) {
  port_ = freePort();
  tlsPort_ = options.certificate ? freePort() : 0;
  writeFile(
      folder_.file("squid.conf"),
      squidConfiguration(
          {.folder = folder_.path(), .name = name_, .port = port_, .tlsPort = tlsPort_, .options = options}));
  giveToOrdinaryUser(folder_.path());
  process_ = std::make_unique<ChildProcess>(ChildProcess::Options{
      .arguments = asOrdinaryUser({"/usr/sbin/squid", "-N", "-n", name_, "-f", folder_.file("squid.conf")}),
      .outputFile = folder_.file("output.txt")});
  bool answering = false;
  waitUntil([&] {
    answering = plainGet(port_, kMark + std::to_string(++marks_)).find(name_) != std::string::npos;
    return answering || process_->ended();
  });
  return answering;
}

std::string SquidServer::url(const std::string& target) const {
  return "http://127.0.0.1:" + std::to_string(port_) + target;
}

std::vector<SquidServer::Access> SquidServer::accesses() {
  // The server has one thread and writes a request's line when it ends: behind the line of this one are all
  // that ended before.
  const std::string mark = kMark + std::to_string(++marks_);
  plainGet(port_, mark);
  std::vector<Access> result;
  std::map<long, long> numbers;
  const bool marked = waitUntil([&] {
    result.clear();
    numbers.clear();
    std::istringstream log(readFile(folder_.file("access.log")));
    for (std::string line; std::getline(log, line) && !log.eof();) {
      result.push_back(parseLine(line));
      Access& last = result.back();
      last.number = ++numbers[last.connection];
      if (last.target.ends_with(mark)) {
        return true;
      }
    }
    return false;
  });
  if (!marked) {
    throw std::runtime_error("squid does not log:\n" + errorLog());
  }
  // squid also writes a line, without a method, for what it did not read of a connection.
  std::erase_if(result, [](const Access& one) {
    return one.target.find(kMark) != std::string::npos || one.method == "-";
  });
  return result;
}

bool SquidServer::waitForAccesses(const std::string& method, std::size_t count) {
  return waitUntil([&] {
    return static_cast<std::size_t>(std::ranges::count(accesses(), method, &Access::method)) >= count;
  });
}

std::size_t SquidServer::connectionsOf(const std::vector<Access>& accesses) {
  std::set<long> connections;
  for (const Access& one : accesses) {
    connections.insert(one.connection);
  }
  return connections.size();
}

std::string SquidServer::errorLog() const {
  const std::string path = folder_.file("cache.log");
  return fileExists(path) ? readFile(path) : "";
}

}  // namespace test
