// Writes the traces that its first argument names; prints what the test cannot see in the plug-in's record.

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/CFuncTrace.h"
#include "support/QlxTrace.h"
#include "support/QlxtraStreamA.h"
#include "support/logstream.h"

namespace {

void writeLevels() {
  for (const unsigned long level : {1UL, 2UL, 4UL, 8UL, 3UL, 0UL, 16UL}) {
    QLXTRACERAWA(level, "module", "extra", ("raw " + std::to_string(level)).c_str());
  }
}

void writeLines() {
  int number = 7;
  for (const unsigned long level : {QLX_LEVEL_DEBUG, QLX_LEVEL_INFO, QLX_LEVEL_WARNING, QLX_LEVEL_ERROR}) {
    logstream(level, "Unknown").l_value()
        << "line " << number << ", " << 2.5 << " " << std::string("text") << std::endl;
  }
}

void writePieces(std::size_t characters) {
  std::string text;
  for (std::size_t i = 0; i < characters; ++i) {
    text += static_cast<char>('a' + i % 26);
  }
  QlxtraStreamA stream(QLX_LEVEL_INFO);
  stream << text.substr(0, characters / 2).c_str() << text.substr(characters / 2).c_str();
  stream.flusha("Unknown");
  stream.flusha("Unknown");
}

void writeNulls() {
  const char* nothing = nullptr;
  logstream(QLX_LEVEL_INFO, "Unknown").l_value() << "[" << nothing << "]";
  logstream(QLX_LEVEL_INFO, "Unknown").l_value() << 1 << nothing << "]";
  QlxtraStreamA stream(QLX_LEVEL_INFO);
  stream << "[" << nothing << "]";
  stream.flusha(nullptr);
  std::printf("%d\n", QLXTRACERAWA(QLX_LEVEL_INFO, nullptr, nullptr, nullptr));
}

void writeFrames() {
  const CFuncTrace outer("outer");
  { const CFuncTrace inner(BasicString("inner")); }
}

void writeFromManyThreads() {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([thread] {
      for (int line = 0; line < 50; ++line) {
        logstream(QLX_LEVEL_INFO, "Unknown").l_value()
            << "thread " << thread << " line " << line << std::endl;
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
}

void printState() {
  logstream line(QLX_LEVEL_INFO, "Unknown");
  line << "collected";
  std::printf("level %lu, debug %d, error %d, writers %d%d%d%d, collected \"%s\"\n", _getTraceLevel(),
              IsCanLog(QLX_LEVEL_DEBUG), IsCanLog(QLX_LEVEL_ERROR), qlxHasWriter(QLX_LEVEL_DEBUG),
              qlxHasWriter(QLX_LEVEL_INFO), qlxHasWriter(QLX_LEVEL_WARNING), qlxHasWriter(QLX_LEVEL_ERROR),
              line.str().c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "levels") {
    writeLevels();
  } else if (what == "lines") {
    writeLines();
  } else if (what == "pieces" && argc > 2) {
    writePieces(std::stoul(argv[2]));
  } else if (what == "nulls") {
    writeNulls();
  } else if (what == "frames") {
    writeFrames();
  } else if (what == "threads") {
    writeFromManyThreads();
  } else if (what == "state") {
    printState();
  } else {
    return 2;
  }
  return 0;
}
