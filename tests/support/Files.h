#pragma once

// Whole files as texts, for tests. Any thread.

#include <string>

namespace test {

/// The bytes of a file; throws std::runtime_error when it cannot be read.
std::string readFile(const std::string& path);

/// Replaces the file's content; makes the file if there is none. Throws std::runtime_error on failure.
void writeFile(const std::string& path, const std::string& content);

bool fileExists(const std::string& path);

}  // namespace test
