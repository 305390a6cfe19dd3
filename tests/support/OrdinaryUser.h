#pragma once

// For servers that refuse to work as root, or that change their user by themselves and so lose the signal that
// ends them with their maker: under root they are started as an ordinary user right away. For tests of what a user
// may not do, too. For any other user nothing changes. Any thread.

#include <string>
#include <vector>

namespace test {

/// The command that runs this one as an ordinary user. The process still ends with the thread that starts it.
std::vector<std::string> asOrdinaryUser(std::vector<std::string> arguments);

/// Makes that user the owner of a folder and of all that is in it.
void giveToOrdinaryUser(const std::string& folder);

/// Makes this process one of that user, for good. Throws std::runtime_error when it cannot.
void becomeOrdinaryUser();

}  // namespace test
