#include "tests/support/ThreadRefusal.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>

namespace test {
namespace {

std::atomic<int> refusalError = 0;
std::atomic<int> firstRefused = 0;
std::atomic<int> mostRefused = 0;
std::atomic<int> asked = 0;

}  // namespace

ThreadRefusal::ThreadRefusal(int error, int first, int most) {
  firstRefused = first;
  mostRefused = most;
  asked = 0;
  refusalError = error;
}

ThreadRefusal::~ThreadRefusal() {
  refusalError = 0;
}

int ThreadRefusal::count() {
  return asked;
}

}  // namespace test

// Stands before the C library's for the whole process, the shared libraries included.
extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*entry)(void*), void* argument) {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  if (const int error = test::refusalError) {
    const int number = test::asked++ - test::firstRefused;
    if (number >= 0 && number < test::mostRefused) {
      return error;
    }
  }
  return create(thread, attributes, entry, argument);
}
