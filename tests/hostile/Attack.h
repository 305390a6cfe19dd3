#pragma once

// Attacks on the library: hostile answers to many tasks at once, how each of them ends, what they cost, and whether
// the process serves its next task. Belongs to the test's main thread.

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/host/HostPool.h"
#include "tests/support/RawServer.h"

namespace test {

class TlsIdentity;

/// Megabytes that an attack may cost at its peak. A sanitizer keeps freed memory for a while.
#ifdef HOSTILE_SANITIZER
inline constexpr long kSpareMegabytes = 600;
#else
inline constexpr long kSpareMegabytes = 24;
#endif

/// How far the process's resident memory has grown at its peak, since the object was made.
class MemoryPeak {
 public:
  MemoryPeak();
  long megabytes() const;

 private:
  long before_;
};

/// What one task is to meet.
struct Attack {
  std::string name;
  RawServer::Script script;
  Outcome expected;
  /// Where it is a race: another end that is right.
  std::optional<Outcome> orElse = {};
  /// Of a flood: the bytes that have been taken so far.
  std::shared_ptr<std::atomic<std::size_t>> sent = {};
};

/// Expects that the pool serves a task from a good server.
using Service = std::function<void(HostPool& pool)>;
/// By HTTP.
void expectServes(HostPool& pool);
/// By TLS.
Service servingByTls(std::shared_ptr<const TlsIdentity> identity);

/// Runs all attacks at once, each against a script of its own, and expects each to end as it says, the peak of memory
/// to stay within the spare, and one more task of the same pool to be served. The call's URL is replaced; `origin` goes
/// before the port of the server.
void expectEnds(const std::vector<Attack>& attacks, const Call& call = {},
                const std::string& origin = "http://127.0.0.1", const Service& service = &expectServes);

/// Expects that another pool's task is served while all these floods go on, and that their own tasks can then be reset.
/// They must be floods that end by silence alone.
void expectNobodyHeldUp(const std::vector<Attack>& floods, const std::string& origin, const Service& service);

/// Sends that text and closes.
Attack answering(const std::string& name, const std::string& text, const Outcome& expected);

/// Waits until the peer goes away.
void stall(RawServer::Connection& connection);

}  // namespace test
