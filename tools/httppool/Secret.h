// Bytes that are wiped from memory when they are no longer needed: what a password passes through on its way to
// the library. Values; any thread.
#pragma once

#include <string_view>
#include <vector>

namespace httppool {

class Secret {
 public:
  Secret() = default;
  explicit Secret(std::string_view text) { append(text); }
  ~Secret();
  Secret(const Secret&) = default;
  Secret(Secret&&) noexcept = default;
  Secret& operator=(Secret other) noexcept;

  void append(std::string_view part);
  void removeLast() { bytes_.pop_back(); }

  std::string_view text() const { return {bytes_.data(), bytes_.size()}; }
  bool isEmpty() const { return bytes_.empty(); }

 private:
  // Not a std::string: a short one lies inside the object, and moving it leaves the bytes behind.
  std::vector<char> bytes_;
};

}  // namespace httppool
