#include "BodyOutput.h"

#include <unistd.h>

#include <cstdio>

#include "TerminalText.h"

namespace httppool {

void showBody(const std::string& body) {
  const bool isTerminal = isatty(STDOUT_FILENO) != 0;
  const std::string text = isTerminal ? escaped(body, Lines::Keep) : body;
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (isTerminal && !text.empty() && text.back() != '\n') {
    std::fputc('\n', stdout);
  }
  std::fflush(stdout);
}

}  // namespace httppool
