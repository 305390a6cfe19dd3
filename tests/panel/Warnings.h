#pragma once

// The warnings that the library traces while the object lives. One at a time; any thread may trace.

#include <string>
#include <vector>

namespace test {

class Warnings {
 public:
  Warnings();
  ~Warnings();
  Warnings(const Warnings&) = delete;
  Warnings& operator=(const Warnings&) = delete;

  void clear();
  std::vector<std::string> all() const;
  /// Each on a line of its own.
  std::string text() const;
};

}  // namespace test
