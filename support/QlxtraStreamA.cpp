#include "support/QlxtraStreamA.h"

#include <cstdlib>
#include <utility>

#include "support/AnnexK.h"
#include "support/QlxTrace.h"

namespace {

constexpr size_t kPieceSize = 2047;
constexpr size_t kLongestText = 0x7fffffff;
constexpr size_t kExtraSize = 256;

}  // namespace

QlxtraStreamA::QlxtraStreamA(unsigned long level) : m_level(level), m_pieceSize(kPieceSize) {
}

QlxtraStreamA::Text QlxtraStreamA::allocate(size_t size) {
  return Text(static_cast<char*>(std::malloc(size)));
}

QlxtraStreamA& QlxtraStreamA::operator<<(const char* s) {
  writestringa(s != nullptr ? s : "null");
  return *this;
}

void QlxtraStreamA::writestringa(const char* s) {
  const size_t added = support::strnlen_s(s, kLongestText);
  const size_t before = m_length == 0 ? 0 : m_length - 1;
  const size_t length = before + added + 1;
  Text longer = allocate(length);
  if (longer != nullptr) {
    if (before > 0) {
      support::memcpy_s(longer.get(), length, m_text.get(), before);
    }
    support::strncpy_s(longer.get() + before, length - before, s, added);
  }
  // Without memory the line is lost whole, which keeps this simple on purpose.
  m_length = longer != nullptr ? length : 0;
  m_text = std::move(longer);
}

void QlxtraStreamA::flusha(const char* module) {
  if (m_length == 0) {
    return;
  }
  if (m_length <= m_pieceSize) {
    QLXTRACERAWA(m_level, module, nullptr, m_text.get());
  } else {
    flushPieces(module);
  }
  m_text.reset();
  m_length = 0;
}

void QlxtraStreamA::flushPieces(const char* module) const {
  const size_t characters = m_pieceSize - 1;
  // The terminator counts, too, so a text of whole pieces deliberately ends with an empty one.
  const size_t pieces = m_length / characters + (m_length % characters != 0 ? 1 : 0);
  for (size_t i = 0; i < pieces; ++i) {
    char piece[kPieceSize] = {};
    support::strncpy_s(piece, sizeof(piece), m_text.get() + characters * i, characters);
    const char extra[kExtraSize] = {};
    QLXTRACERAWA(m_level, module, extra, piece);
  }
}
