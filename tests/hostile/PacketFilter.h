#pragma once

// The packet filter, nftables, of a network namespace of the test's own. The machine's filter is out of its reach:
// making the object moves the calling thread, which must still be the process's only one, into the namespace, in which
// there is nothing but the loopback interface. From then on it may be used by any thread.

#include <mutex>
#include <string>

namespace test {

class PacketFilter {
 public:
  /// What becomes of a packet.
  enum class Verdict {
    Lost,             ///< it is gone without a word
    Reset,            ///< the client gets a TCP reset, as if the server had sent it
    Prohibited,       ///< the sender is told by ICMP that this is prohibited
    HostUnreachable,  ///< or that there is no such host,
    NetUnreachable,   ///< no such network,
    PortUnreachable,  ///< nobody at that port
  };

  /// `kinds`: other namespaces to be entered along with it, of clone(2). Throws std::runtime_error where the system
  /// does not allow that.
  explicit PacketFilter(int kinds = 0);
  PacketFilter(const PacketFilter&) = delete;
  PacketFilter& operator=(const PacketFilter&) = delete;

  /// From now on for the packets of TCP and UDP to that port, and from it.
  void stop(int port, Verdict verdict);
  /// Lets all packets through again.
  void letThrough();
  /// How many packets have met a verdict so far.
  long stopped();

 private:
  void run(const std::string& commands);

  std::mutex mutex_;
};

/// As the verdict is spelt.
const char* nameOf(PacketFilter::Verdict verdict);

}  // namespace test
