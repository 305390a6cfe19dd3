#pragma once

// What a comparison ran on: the machine, and the versions of all that took part. Any thread.

#include <json/value.h>

namespace bench {

Json::Value describeMachine();

}  // namespace bench
