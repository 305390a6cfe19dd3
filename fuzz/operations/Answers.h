#pragma once

// What the library answers, read by its rules: first the length is asked for, and then the text, into a block of
// exactly that length, so that a byte too many is noticed.

#include <json/value.h>

#include <optional>
#include <string>

namespace operations {

std::string propertyOf(const char* pool, const char* task, int property);

/// Whether more is to be expected of the task.
bool isRunning(const char* pool, const char* task);

/// Nothing when the library says nothing.
std::optional<Json::Value> taskListOf(const char* pool);

Json::Value snapshot();

}  // namespace operations
