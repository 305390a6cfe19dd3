#pragma once

// A contender is a program of its own, so that CPU time, switches, memory and threads are its own. This is its main
// function but for the work itself: it takes the assignment from the command line and writes the figures to the file
// that the comparing program names. Main thread.

#include <string>

#include "bench/compare/Figures.h"
#include "bench/compare/Work.h"

namespace bench {

struct Assignment {
  Work work;
  std::string url;
  std::string authorityFile;  ///< PEM: whose certificates are trusted
  double seconds = 3;         ///< how long to measure; 0: once
  long bodyBytes = 0;         ///< of every good answer
  std::string folder;         ///< for files; empty at first
  std::string command;        ///< which one, of the contender that runs commands

  std::string downloadFile() const { return folder + "/downloaded"; }
};

using RunWork = Figures (*)(const Assignment&);

int contenderMain(int count, char** words, RunWork run);

/// Whether the file has exactly as many bytes.
bool hasSize(const std::string& file, long bytes);

}  // namespace bench
