#pragma once

// Every trace line of the process is recorded, and a test during which a secret got into one fails. Works in a
// program that lies in a bundle with the recording plug-in. From main().

#include <string>
#include <vector>

namespace test {

/// Begins to record from that level on, and watches the tests that follow. Before the library traces anything.
void guardTraces(int level);

/// From now on this text is a secret, too; those of the test servers are from the beginning.
void addSecret(const std::string& secret);

/// What was traced so far, without the texts of results, which belong to the host.
std::vector<std::string> tracedTexts();

std::string base64(const std::string& text);

}  // namespace test
