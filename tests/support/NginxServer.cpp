#include "tests/support/NginxServer.h"

#include <cstdio>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>

#include "tests/support/Files.h"
#include "tests/support/FreePort.h"
#include "tests/support/NginxConfiguration.h"
#include "tests/support/PlainRequest.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

NginxServer::Access parseLine(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; fields.size() < 9 && std::getline(stream, field, '\t');) {
    fields.push_back(field);
  }
  if (fields.size() < 9) {
    throw std::runtime_error("access log: " + line);
  }
  std::string requestLine;
  std::getline(stream, requestLine, '\0');
  return {.connection = std::stol(fields[0]),
          .number = std::stol(fields[1]),
          .protocol = fields[2],
          .method = fields[3],
          .target = fields[4],
          .requestLine = requestLine,
          .status = std::stoi(fields[5]),
          .bodyBytes = std::stol(fields[6]),
          .port = std::stoi(fields[7]),
          .host = fields[8]};
}

std::vector<NginxServer::Access> withPath(std::vector<NginxServer::Access> all, const std::string& path) {
  std::erase_if(all, [&path](const NginxServer::Access& one) {
    return one.target.substr(0, one.target.find('?')) != path;
  });
  return all;
}

}  // namespace

NginxServer::NginxServer(const Options& options) {
  for (const char* name : {"files", "none"}) {
    std::filesystem::create_directory(folder_.file(name));
  }
  // The port was free when the kernel chose it; who loses the race for it tries another.
  constexpr int kAttempts = 10;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (start(options)) {
      return;
    }
  }
  throw std::runtime_error("nginx does not start:\n" + errorLog() + readFile(folder_.file("output.txt")));
}

NginxServer::~NginxServer() = default;

bool NginxServer::start(const Options& options) {
  port_ = freePort();
  tlsPort_ = options.certificate ? freePort() : 0;
  const CertificateAuthority::Leaf leaf = options.certificate.value_or(CertificateAuthority::Leaf{});
  writeFile(folder_.file("nginx.conf"), nginxConfiguration({.folder = folder_.path(),
                                                            .port = port_,
                                                            .tlsPort = tlsPort_,
                                                            .certificateFile = leaf.chainFile,
                                                            .keyFile = leaf.keyFile,
                                                            .http2 = options.http2,
                                                            .extraLocations = options.extraLocations}));
  process_ = std::make_unique<ChildProcess>(
      ChildProcess::Options{.arguments = {"/usr/sbin/nginx", "-p", folder_.path(), "-e",
                                          folder_.file("error.log"), "-c", folder_.file("nginx.conf")},
                            .outputFile = folder_.file("output.txt"),
                            .raiseDescriptorLimit = true});
  bool answering = false;
  waitUntil([&] { return process_->ended() || (answering = answers()); });
  return answering;
}

bool NginxServer::answers() {
  return get("/alive").ends_with("\r\n\r\n" + folder_.path());
}

std::string NginxServer::get(const std::string& target) const {
  return plainGet(port_, target);
}

std::string NginxServer::url(const std::string& target) const {
  return "http://127.0.0.1:" + std::to_string(port_) + target;
}

std::string NginxServer::tlsUrl(const std::string& target, const std::string& host) const {
  return "https://" + host + ":" + std::to_string(tlsPort_) + target;
}

std::vector<NginxServer::Access> NginxServer::accesses() {
  // The server has one thread and writes a request's line when it ends: behind the line of this one are all
  // that ended before.
  const std::string mark = "/mark?" + std::to_string(++marks_);
  get(mark);
  std::vector<Access> result;
  const bool marked = waitUntil([&] {
    result.clear();
    std::istringstream log(readFile(folder_.file("access.log")));
    for (std::string line; std::getline(log, line) && !log.eof();) {
      result.push_back(parseLine(line));
      if (result.back().target == mark) {
        return true;
      }
    }
    return false;
  });
  if (!marked) {
    throw std::runtime_error("nginx does not log:\n" + errorLog());
  }
  std::erase_if(result, [](const Access& one) { return one.target.starts_with("/mark?"); });
  return result;
}

std::vector<NginxServer::Access> NginxServer::accesses(const std::string& path) {
  return withPath(accesses(), path);
}

bool NginxServer::waitForAccesses(const std::string& path, std::size_t count) {
  return waitUntil([&] { return accesses(path).size() >= count; });
}

std::size_t NginxServer::connectionsOf(const std::vector<Access>& accesses) {
  std::set<long> connections;
  for (const Access& one : accesses) {
    connections.insert(one.connection);
  }
  return connections.size();
}

long NginxServer::openConnections() {
  const std::string label = "Active connections: ";
  const std::string answer = get("/connections");
  const std::size_t at = answer.find(label);
  return at == std::string::npos ? -1 : std::stol(answer.substr(at + label.size())) - 1;
}

bool NginxServer::waitForOpenConnections(long count) {
  return waitUntil([&] { return openConnections() == count; });
}

std::string NginxServer::errorLog() const {
  const std::string path = folder_.file("error.log");
  return fileExists(path) ? readFile(path) : "";
}

std::string NginxServer::bigBody(std::size_t bytes) {
  std::string filler;
  for (int line = 0; line < 4095; ++line) {
    filler += "0123456789abcdef";
  }
  std::string body;
  body.reserve(bytes + filler.size() + 16);
  for (std::size_t block = 0; body.size() < bytes; ++block) {
    char counter[32];
    snprintf(counter, sizeof(counter), "%015zu\n", block);
    body += counter;
    body += filler;
  }
  body.resize(bytes);
  return body;
}

}  // namespace test
