// An HTTP origin on 127.0.0.1 that answers each path with the bytes it was given for it, whatever they are,
// and keeps the requests. A path it has no answer for is held open: such a request ends only by the client.
// Threads of its own from construction to destruction; its methods may be called from the test's thread.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tooltest {

class CannedOrigin {
 public:
  // By path; see `answer`.
  explicit CannedOrigin(std::map<std::string, std::string> answers);
  ~CannedOrigin();
  CannedOrigin(const CannedOrigin&) = delete;
  CannedOrigin& operator=(const CannedOrigin&) = delete;

  std::string url(const std::string& path) const;

  // The whole request for a path, head and body; waits for it. Empty: it did not come within a minute.
  std::string requestFor(const std::string& path);

 private:
  void accept();
  void serve(int connection);

  std::map<std::string, std::string> answers_;
  int socket_;
  int port_ = 0;
  std::thread acceptor_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isEnding_ = false;                        // under mutex_
  std::map<std::string, std::string> requests_;  // under mutex_
  std::set<int> connections_;                    // under mutex_
  std::vector<std::thread> servers_;             // the acceptor's, until it has ended
};

// The bytes of an answer.
std::string answer(const std::string& status, const std::string& body, const std::string& fields = "");

}  // namespace tooltest
