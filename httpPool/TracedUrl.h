#pragma once

#include <string>
#include <string_view>

class logstream;

/// A URL as it may stand in a trace line: what could be a password in it is replaced by "***". Works on any
/// text, since URLs are traced also when they are malformed; of those it rather hides too much. Lives no
/// longer than the statement that writes it.
struct TracedUrl {
  std::string_view url;
};

/// Makes the text only when the line is wanted.
logstream& operator<<(logstream& stream, const TracedUrl& traced);

std::string UrlWithoutPassword(std::string_view url);
