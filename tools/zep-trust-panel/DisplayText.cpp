#include "DisplayText.h"

#include <glib.h>

#include <algorithm>
#include <memory>

namespace {

enum class Lines { Keep, Join };

constexpr const char* kReplacement = "\xEF\xBF\xBD";
constexpr const char* kZeroWidthSpace = "\xE2\x80\x8B";
constexpr const char* kEllipsis = "\xE2\x80\xA6";

/// Marks that texts in some languages need, and that alone do no harm.
bool isJoiner(gunichar character) {
  return character == 0x200C || character == 0x200D;
}

bool isDirectionMark(gunichar character) {
  return character == 0x200E || character == 0x200F || character == 0x061C;
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
      return isJoiner(character);
    default:
      return true;
  }
}

void append(std::string& result, const char* at, gunichar character, Lines lines) {
  if (character == '\n' && lines == Lines::Keep) {
    result += '\n';
  } else if (character == '\n' || character == '\t' || character == '\r') {
    result += ' ';
  } else if (isDirectionMark(character)) {
    return;
  } else if (isShown(character)) {
    result.append(at, static_cast<const char*>(g_utf8_next_char(at)));
  } else {
    result += kReplacement;
  }
}

std::string cleaned(std::string_view text, Lines lines) {
  const std::unique_ptr<gchar, decltype(&g_free)> valid(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
  std::string result;
  for (const char* at = valid.get(); *at != '\0'; at = g_utf8_next_char(at)) {
    append(result, at, g_utf8_get_char(at), lines);
  }
  return result;
}

std::size_t characters(const std::string& text) {
  return static_cast<std::size_t>(g_utf8_strlen(text.c_str(), -1));
}

std::size_t offset(const std::string& text, std::size_t character) {
  return static_cast<std::size_t>(g_utf8_offset_to_pointer(text.c_str(), static_cast<glong>(character)) -
                                  text.c_str());
}

std::string withoutEnd(std::string text, std::size_t limit) {
  if (characters(text) > limit) {
    text.resize(offset(text, limit));
    text += kEllipsis;
  }
  return text;
}

}  // namespace

std::string shownText(std::string_view text, std::size_t limit) {
  return withoutEnd(cleaned(text, Lines::Keep), limit);
}

std::string shownLine(std::string_view text, std::size_t limit) {
  return withoutEnd(cleaned(text, Lines::Join), limit);
}

std::string shownHost(std::string_view host, std::size_t limit) {
  std::string text = cleaned(host, Lines::Join);
  if (const std::size_t length = characters(text); length > limit) {
    text.replace(0, offset(text, length - limit), kEllipsis);
  }
  return text;
}

std::string breakable(const std::string& text) {
  constexpr int kLongestRun = 40;
  std::string result;
  int run = 0;
  for (const char* at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
    run = g_unichar_isspace(g_utf8_get_char(at)) ? 0 : run + 1;
    if (run > kLongestRun) {
      result += kZeroWidthSpace;
      run = 1;
    }
    result.append(at, static_cast<const char*>(g_utf8_next_char(at)));
  }
  return result;
}
