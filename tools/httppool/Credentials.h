// A user name and its password. Values; any thread.
#pragma once

#include <string>

#include "Secret.h"

namespace httppool {

struct Credentials {
  std::string user;
  Secret password;
};

}  // namespace httppool
