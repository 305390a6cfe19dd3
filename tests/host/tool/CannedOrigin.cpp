#include "CannedOrigin.h"

#include <chrono>
#include <cstdlib>
#include <utility>

namespace tooltest {
namespace {

std::string pathOf(const std::string& request) {
  const std::size_t begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

std::size_t lengthOfBody(const std::string& head) {
  const std::string name = "Content-Length: ";
  const std::size_t field = head.find(name);
  return field == std::string::npos ? 0 : std::strtoul(head.c_str() + field + name.size(), nullptr, 10);
}

}  // namespace

CannedOrigin::CannedOrigin(std::map<std::string, std::string> answers)
    : answers_(std::move(answers)),
      server_([this](test::RawServer::Connection& connection) { serve(connection); }) {
}

std::string CannedOrigin::requestFor(const std::string& path) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, std::chrono::minutes(1), [&] { return requests_.contains(path); });
  return requests_[path];
}

void CannedOrigin::serve(test::RawServer::Connection& connection) {
  std::string request = connection.readRequest();
  const std::string path = pathOf(request);
  request += connection.read(lengthOfBody(request));
  {
    const std::lock_guard lock(mutex_);
    requests_[path] = request;
  }
  changed_.notify_all();
  const auto found = answers_.find(path);
  if (found != answers_.end()) {
    connection.send(found->second);
  } else {
    connection.readToEnd();
  }
}

std::string answer(const std::string& status, const std::string& body, const std::string& fields) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nContent-Type: text/plain\r\nConnection: close\r\n" + fields + "\r\n" + body;
}

}  // namespace tooltest
