#pragma once

// What the system refuses to this process now and then. The functions of the C library that do so stand in front of it
// for the whole process, the libraries included, for which the program has to export its symbols. Besides two host
// names are looked up without a name server: kNoSuchHost does not exist, and for kNoNameServer nobody answers.

namespace test {

inline constexpr const char* kNoSuchHost = "nowhere.test";
inline constexpr const char* kNoNameServer = "unanswered.test";

/// While it lives the calling thread gets no threads.
class ThreadRefusalHere {
 public:
  ThreadRefusalHere();
  ~ThreadRefusalHere();
  ThreadRefusalHere(const ThreadRefusalHere&) = delete;
  ThreadRefusalHere& operator=(const ThreadRefusalHere&) = delete;

  /// Whether one was asked for.
  bool hasRefused() const;
};

/// From now on, or no longer: every hundredth socket that another thread than the main one asks for is refused, as if
/// the process had no descriptor left.
void refuseSockets(bool areRefused);
/// How many were.
int refusedSockets();

}  // namespace test
