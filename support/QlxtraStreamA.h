#pragma once

// Collects the text of one trace line and hands it to the raw writer in pieces of at most 2,046 characters. A
// line that memory does not suffice for is lost whole. Owned and used by the thread that composes the line.

#include <cstddef>
#include <cstdlib>
#include <memory>

class QlxtraStreamA {
 public:
  explicit QlxtraStreamA(unsigned long level);

  /// Appends s, or "null" for a null pointer.
  QlxtraStreamA& operator<<(const char* s);

  /// Appends s, which must not be null.
  void writestringa(const char* s);

  /// Writes the collected text, if there is any, and empties the stream.
  void flusha(const char* module);

 private:
  struct Free {
    void operator()(char* text) const { std::free(text); }
  };
  using Text = std::unique_ptr<char, Free>;

  static Text allocate(size_t size);
  void flushPieces(const char* module) const;

  unsigned long m_level;
  size_t m_length = 0;  ///< with the terminator; 0 while empty
  size_t m_pieceSize;   ///< with the terminator
  Text m_text;
};
