// An HTTP origin on 127.0.0.1 that answers each path with the bytes it was given for it, whatever they are,
// and keeps the requests. A path it has no answer for is held open: such a request ends only by the client.
// Serves on threads of its own; its methods belong to the test's thread.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "tests/support/RawServer.h"

namespace tooltest {

class CannedOrigin {
 public:
  // By path; see `answer`.
  explicit CannedOrigin(std::map<std::string, std::string> answers);

  std::string url(const std::string& path) const { return server_.url(path); }

  // The whole request for a path, head and body; waits for it. Empty: it did not come within a minute.
  std::string requestFor(const std::string& path);

 private:
  void serve(test::RawServer::Connection& connection);

  const std::map<std::string, std::string> answers_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, std::string> requests_;  // under mutex_
  test::RawServer server_;                       // last: its threads use the others
};

// The bytes of an answer.
std::string answer(const std::string& status, const std::string& body, const std::string& fields = "");

}  // namespace tooltest
