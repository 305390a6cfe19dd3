#pragma once

#include <sys/resource.h>

#include <cerrno>
#include <system_error>

namespace test {

/// As long as it lives, this process gets no further descriptor.
class DescriptorShortage {
 public:
  DescriptorShortage() {
    getrlimit(RLIMIT_NOFILE, &before_);
    set({.rlim_cur = 0, .rlim_max = before_.rlim_max});
  }
  ~DescriptorShortage() { setrlimit(RLIMIT_NOFILE, &before_); }
  DescriptorShortage(const DescriptorShortage&) = delete;
  DescriptorShortage& operator=(const DescriptorShortage&) = delete;

 private:
  static void set(const rlimit& limit) {
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      throw std::system_error(errno, std::generic_category(), "the descriptors cannot be limited");
    }
  }

  rlimit before_ = {};
};

}  // namespace test
