// Reads a job file: {"pools":[{"name":..,"tasks":[{"name":..,"url":..,"method":..,"headers":{..},"post":..,
// "dataFile":..,"download":..}]}]}. Strict: what it does not know is an error, with its place in the file.
// Main thread; values only.
#pragma once

#include <string>
#include <vector>

#include "Job.h"

namespace httppool {

struct JobFile {
  std::vector<PoolJob> pools;
  std::string error;  // empty when the file is all right, else "file:line:column: what is wrong"
};

JobFile readJobFile(const std::string& path);

}  // namespace httppool
