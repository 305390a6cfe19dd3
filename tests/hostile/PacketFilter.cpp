#include "tests/hostile/PacketFilter.h"

#include <sched.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <stdexcept>

#include "tests/hostile/Namespace.h"

namespace test {
namespace {

constexpr const char* kChain = "inet test arriving";

std::string expression(PacketFilter::Verdict verdict) {
  switch (verdict) {
    case PacketFilter::Verdict::Lost:
      return "drop";
    case PacketFilter::Verdict::Reset:
      return "reject with tcp reset";
    case PacketFilter::Verdict::Prohibited:
      return "reject with icmp admin-prohibited";
    case PacketFilter::Verdict::HostUnreachable:
      return "reject with icmp host-unreachable";
    case PacketFilter::Verdict::NetUnreachable:
      return "reject with icmp net-unreachable";
    case PacketFilter::Verdict::PortUnreachable:
      return "reject with icmp port-unreachable";
  }
  throw std::logic_error("no such verdict");
}

std::string rule(const std::string& protocols, const std::string& end, int port,
                 PacketFilter::Verdict verdict) {
  return "add rule " + std::string(kChain) + " meta l4proto " + protocols + " th " + end + " " +
         std::to_string(port) + " counter name met " + expression(verdict) + "\n";
}

}  // namespace

PacketFilter::PacketFilter(int kinds) {
  enterNamespaces(kinds | CLONE_NEWNET);
  switchLoopback(true);
  // Where packets arrive: what is refused as it leaves would be an error of the sender's call.
  run("add table inet test\nadd counter inet test met\nadd chain " + std::string(kChain) +
      " { type filter hook input priority 0; policy accept; }\n");
}

void PacketFilter::stop(int port, Verdict verdict) {
  if (verdict == Verdict::Reset) {
    // It goes to whoever sends the packet.
    run(rule("tcp", "dport", port, verdict));
    return;
  }
  run(rule("{ tcp, udp }", "dport", port, verdict) + rule("{ tcp, udp }", "sport", port, verdict));
}

void PacketFilter::letThrough() {
  run("flush chain " + std::string(kChain) + "\n");
}

long PacketFilter::stopped() {
  const std::lock_guard lock(mutex_);
  FILE* const program = popen("/usr/sbin/nft list counter inet test met", "r");
  if (program == nullptr) {
    throw std::runtime_error("nft cannot be started");
  }
  long packets = -1;
  const bool isTold = std::fscanf(program, "%*[^p]packets %ld", &packets) == 1;
  while (std::fgetc(program) != EOF) {
  }
  if (pclose(program) != 0 || !isTold) {
    throw std::runtime_error("nft does not tell its counter");
  }
  return packets;
}

void PacketFilter::run(const std::string& commands) {
  const std::lock_guard lock(mutex_);
  FILE* const program = popen("/usr/sbin/nft -f -", "w");
  if (program == nullptr) {
    throw std::runtime_error("nft cannot be started");
  }
  std::fputs(commands.c_str(), program);
  if (pclose(program) != 0) {
    throw std::runtime_error("nft refuses: " + commands);
  }
}

const char* nameOf(PacketFilter::Verdict verdict) {
  constexpr std::array kNames = {"Lost",           "Reset",          "Prohibited", "HostUnreachable",
                                 "NetUnreachable", "PortUnreachable"};
  return kNames.at(static_cast<std::size_t>(verdict));
}

}  // namespace test
