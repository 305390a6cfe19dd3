// Bodies of answers on stdout. Main thread.
#pragma once

#include <string>

namespace httppool {

// A file or a pipe gets the bytes as they are, a terminal nothing that could steer it.
void showBody(const std::string& body);

}  // namespace httppool
