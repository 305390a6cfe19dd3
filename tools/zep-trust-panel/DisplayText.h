#pragma once

#include <string>
#include <string_view>

/// Texts from a request may be anybody's. What is shown of them holds no control characters, nothing that turns
/// the direction of writing around or hides, and no more than `limit` characters: U+FFFD stands for what was
/// taken out, an ellipsis for what was cut off. Nothing here reads markup.

/// Lines stay lines.
std::string shownText(std::string_view text, std::size_t limit);
/// On one line.
std::string shownLine(std::string_view text, std::size_t limit);
/// A host name on one line; the end is what counts in a name, so a long one loses its beginning.
std::string shownHost(std::string_view host, std::size_t limit);
/// The text with a place to end the line in every long run without blanks: laying out a run takes the toolkit the
/// square of its length, seconds for a few thousand characters.
std::string breakable(const std::string& text);
