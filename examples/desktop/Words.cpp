#include "Words.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "Json.h"

namespace example {
namespace {

// As much as somebody reads.
constexpr long kShownBytes = 32'000;
constexpr long kLongestCharacter = 4;
constexpr int kLongestRun = 120;

std::string oneDecimal(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", value);
  return text.data();
}

std::string hex(unsigned value) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%02X", value);
  return text.data();
}

bool isShown(gunichar character) {
  switch (g_unichar_type(character)) {
    case G_UNICODE_CONTROL:
    case G_UNICODE_FORMAT:
    case G_UNICODE_SURROGATE:
    case G_UNICODE_PRIVATE_USE:
    case G_UNICODE_UNASSIGNED:
    case G_UNICODE_LINE_SEPARATOR:
    case G_UNICODE_PARAGRAPH_SEPARATOR:
      return character == '\n' || character == '\t';
    default:
      return true;
  }
}

// The character at the beginning of the text, or its escape; takes it off.
std::string nextShown(std::string_view& text) {
  constexpr gunichar kEnd = 0x110000;
  const gunichar character = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
  const bool isText = character < kEnd;
  const std::size_t length = isText ? static_cast<std::size_t>(g_unichar_to_utf8(character, nullptr)) : 1;
  const std::string_view bytes = text.substr(0, length);
  text.remove_prefix(length);
  if (!isText) {
    return "\\x" + hex(static_cast<unsigned char>(bytes.front()));
  }
  return isShown(character) ? std::string(bytes) : "\\u{" + hex(character) + "}";
}

// Calls `use` for each character that begins within the limit.
template <typename Use>
void forEachShown(std::string_view text, std::size_t limit, Use use) {
  const std::size_t size = text.size();
  while (!text.empty() && size - text.size() < limit) {
    use(nextShown(text));
  }
}

// Where the password begins and ends, also in a URL that is malformed because of it: "http://alice:sec/ret@host".
std::pair<std::size_t, std::size_t> passwordIn(const std::string& url) {
  const std::size_t scheme = url.find("://");
  const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t authorityEnd = std::min(url.find_first_of("/?#", begin), url.size());
  const std::size_t colon = url.find(':', begin);
  const std::size_t authorityAt = url.substr(0, authorityEnd).rfind('@');
  const std::size_t at = authorityAt != std::string::npos ? authorityAt : url.rfind('@');
  const bool isPort = url.find_first_not_of("0123456789", colon + 1) == authorityEnd;
  if (at == std::string::npos || at < colon || colon > authorityEnd || url[begin] == '[' ||
      (isPort && at > authorityEnd)) {
    return {0, 0};
  }
  return {colon + 1, at};
}

}  // namespace

std::string statusWord(const Task& task) {
  switch (task.status) {
    case ZEP_HTTP_TASK_UNINITIALIZED:
      return task.isPaused ? "paused" : "ready";
    case ZEP_HTTP_TASK_REQUESTING:
      return "requesting";
    case ZEP_HTTP_TASK_DONE:
      return "done";
    case ZEP_HTTP_TASK_TIMEOUT:
      return "timed out";
    case ZEP_HTTP_TASK_REDIRECTED:
      return "redirected";
    default:
      return "failed";
  }
}

std::string summary(const std::vector<Task>& tasks) {
  std::vector<std::pair<std::string, int>> counts = {{"requesting", 0}, {"done", 0},  {"failed", 0},
                                                     {"paused", 0},     {"ready", 0}, {"timed out", 0},
                                                     {"redirected", 0}};
  std::string text;
  for (auto& [word, count] : counts) {
    for (const Task& task : tasks) {
      count += statusWord(task) == word ? 1 : 0;
    }
    if (count > 0) {
      text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + word;
    }
  }
  return text.empty() ? "no tasks" : text;
}

std::string timeText(std::chrono::milliseconds time) {
  constexpr double kMillisecondsPerSecond = 1000;
  return oneDecimal(static_cast<double>(time.count()) / kMillisecondsPerSecond) + " s";
}

std::string sizeText(long bytes) {
  constexpr double kStep = 1000;
  const auto size = static_cast<double>(bytes);
  if (size < kStep) {
    return std::to_string(bytes) + " B";
  }
  return size < kStep * kStep ? oneDecimal(size / kStep) + " kB" : oneDecimal(size / kStep / kStep) + " MB";
}

std::string shownUrl(const std::string& url) {
  const auto [begin, end] = passwordIn(url);
  std::string shown = url;
  shown.replace(begin, end - begin, begin == end ? "" : "***");
  return shownLine(shown, shown.size());
}

std::string resultText(const Task& task) {
  switch (task.status) {
    case ZEP_HTTP_TASK_UNINITIALIZED:
      return task.isPaused ? "Paused. Run begins the request again." : "Not run yet.";
    case ZEP_HTTP_TASK_REQUESTING:
      return "Waiting for the server.";
    case ZEP_HTTP_TASK_DONE:
      break;
    case ZEP_HTTP_TASK_REDIRECTED:
      return "The server redirects to " + shownUrl(Tasks::redirect(task));
    default:
      return explained(Tasks::result(task, kShownBytes));
  }
  if (task.resultSize == 0) {
    return "The answer is empty.";
  }
  std::string text =
      shownText(Tasks::result(task, kShownBytes + kLongestCharacter), static_cast<std::size_t>(kShownBytes));
  if (task.resultSize > kShownBytes) {
    text += "\n\nThe first " + sizeText(kShownBytes) + " of " + sizeText(task.resultSize) + ".";
  }
  return text;
}

std::string explained(const std::string& error) {
  const Json::Value value = jsonFrom(error.c_str());
  if (!value.isObject() || !value["errorID"].isInt()) {
    return "The URL is not one that can be requested.";
  }
  switch (value["errorID"].asInt()) {
    case 1:
      return "The connection was lost, there is no network, the proxy demands a password, or the server's "
             "certificate is revoked.";
    case 2:
      return "The server was not found or refused the connection, or it answered that it cannot or will not "
             "do this.";
    case 3:
      return "Nobody signed in, or the server's certificate was not accepted.";
    case 4:
      return "The server has been silent for too long.";
    case 5:
      return "The server is busy. It asks to try again in " +
             timeText(std::chrono::milliseconds(value["errorReason"].asInt64())) + ".";
    default:
      return "The request failed: the answer was not HTTP, was too large, or redirected too often.";
  }
}

std::string shownText(std::string_view text, std::size_t limit) {
  std::string shown;
  int run = 0;
  forEachShown(text, limit, [&](const std::string& character) {
    run = character == "\n" || character == "\t" || character == " " ? 0 : run + 1;
    if (run > kLongestRun) {
      shown += '\n';
      run = 1;
    }
    shown += character;
  });
  return shown;
}

std::string shownLine(std::string_view text, std::size_t limit) {
  std::string shown;
  forEachShown(text, limit, [&](const std::string& character) {
    shown += character == "\n" || character == "\t" ? " " : character;
  });
  return shown;
}

}  // namespace example
