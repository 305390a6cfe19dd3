#include "GatedOrigin.h"

#include <algorithm>
#include <chrono>

#include "CannedOrigin.h"

namespace tooltest {

GatedOrigin::GatedOrigin() : server_([this](test::RawServer::Connection& connection) { serve(connection); }) {
}

GatedOrigin::~GatedOrigin() {
  const std::lock_guard lock(mutex_);
  isOver_ = true;
  changed_.notify_all();
}

std::vector<std::string> GatedOrigin::arrivals(std::size_t count) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, std::chrono::minutes(1), [&] { return arrivals_.size() >= count; });
  return arrivals_;
}

void GatedOrigin::release(const std::string& path) {
  const std::lock_guard lock(mutex_);
  released_.insert(path);
  changed_.notify_all();
}

std::size_t GatedOrigin::mostAtOnce() {
  const std::lock_guard lock(mutex_);
  return mostAtOnce_;
}

void GatedOrigin::serve(test::RawServer::Connection& connection) {
  const std::string request = connection.readRequest();
  const std::size_t begin = request.find(' ') + 1;
  const std::string path = request.substr(begin, request.find(' ', begin) - begin);
  {
    std::unique_lock lock(mutex_);
    arrivals_.push_back(path);
    mostAtOnce_ = std::max(mostAtOnce_, ++held_);
    changed_.notify_all();
    changed_.wait(lock, [&] { return released_.contains(path) || isOver_; });
    --held_;  // before the answer: the next request may come at once behind it
  }
  connection.send(answer("200 OK", "body of " + path));
}

}  // namespace tooltest
