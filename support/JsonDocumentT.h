#pragma once

// A JSON value that is the root of a parsed text, with the outcome of the parse. Accepts exactly the grammar
// of RFC 8259 (up to the text's first zero byte), nested 512 levels deep at most: a deeper text is a parse
// error. Parsing does not recurse. A value type, used by the thread that made it; passing a document where a
// JsonValueT is taken passes its root.

#include <cstddef>
#include <string>

#include "support/JsonValueT.h"

class JsonDocumentT : public JsonValueT {
 public:
  static constexpr size_t kMaxDepth = 512;

  /// A null document. stackCapacity: the bytes to set aside for the parse stack, which grows as needed.
  explicit JsonDocumentT(size_t stackCapacity = 1024);

  /// Replaces the document by the text's root, or by null when the text does not parse. Returns the document.
  JsonDocumentT& parse(const std::string& text);

  /// Whether the last parse failed.
  bool hasParseError() const;

  /// 0, or the number of the error (rapidjson's ParseErrorCode; 16 for a text nested too deep).
  int parseErrorCode() const;

  /// Where in the text the error is, in bytes; 0 without one.
  size_t parseErrorOffset() const;

 private:
  size_t m_stackCapacity;
  int m_errorCode = 0;
  size_t m_errorOffset = 0;
};
