// The text of a task's header-field property: the task's header fields and its method as one flat JSON
// object. Any thread; values only.
#pragma once

#include <string>

#include "Job.h"

namespace httppool {

std::string requestHeader(const TaskJob& task);

}  // namespace httppool
