#pragma once

// Surroundings of the test's own: processes that are not root get them beneath a user of their own.

#include <sched.h>

namespace test {

/// Moves the calling thread, which must still be the process's only one, into new namespaces. Throws
/// std::runtime_error where the system does not allow that.
void enterNamespaces(int kinds);

/// Switches the loopback interface of the namespace.
void switchLoopback(bool on);

}  // namespace test
