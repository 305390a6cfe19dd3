// What the window says about tasks. What comes from a server may be any bytes, and many: only a part of them is
// shown, and what is no text is escaped. No password is shown. All texts returned are UTF-8.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "Tasks.h"

namespace example {

std::string statusWord(const Task& task);
// "2 done, 1 failed"
std::string summary(const std::vector<Task>& tasks);
std::string timeText(std::chrono::milliseconds time);
std::string sizeText(long bytes);
// The URL with asterisks for the password in it.
std::string shownUrl(const std::string& url);

// What there is to read about the task: a part of its body, or its error in words.
std::string resultText(const Task& task);
// Of {"errorID":n,"errorReason":m}, or of nothing.
std::string explained(const std::string& error);

// The characters that begin in the first `limit` bytes, with escapes for what is no UTF-8 or has no shape: "\xE9",
// "\u{202E}". Lines stay lines; a run without blanks is broken up, since a long one
// takes a toolkit seconds to lay out.
std::string shownText(std::string_view text, std::size_t limit);
// The same on one line.
std::string shownLine(std::string_view text, std::size_t limit);

}  // namespace example
