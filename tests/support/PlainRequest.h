#pragma once

// One request over a connection of its own, without any HTTP library: how a fixture asks its server whether it
// is up and how far its log is. Blocks the calling thread. Any thread.

#include <string>

namespace test {

/// The whole answer to "GET TARGET HTTP/1.0" on 127.0.0.1, or what there is of it; empty when there is none.
std::string plainGet(int port, const std::string& target);

}  // namespace test
