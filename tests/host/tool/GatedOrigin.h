// An HTTP origin on 127.0.0.1 that holds every request until the test lets it go, and counts those it has. Serves on
// threads of its own; its methods belong to the test's thread.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tests/support/RawServer.h"

namespace tooltest {

class GatedOrigin {
 public:
  GatedOrigin();
  ~GatedOrigin();

  std::string url(const std::string& path) const { return server_.url(path); }

  // The paths in the order of their requests, once there are so many; fewer when they have not come within a minute.
  std::vector<std::string> arrivals(std::size_t count);
  // The request for the path is answered, also one that is still to come.
  void release(const std::string& path);
  // How many requests have been here at once, at most.
  std::size_t mostAtOnce();

 private:
  void serve(test::RawServer::Connection& connection);

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> arrivals_;  // under mutex_
  std::set<std::string> released_;     // under mutex_
  std::size_t held_ = 0;               // under mutex_
  std::size_t mostAtOnce_ = 0;         // under mutex_
  bool isOver_ = false;                // under mutex_
  test::RawServer server_;             // last: its threads use the others
};

}  // namespace tooltest
