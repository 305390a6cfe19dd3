#include "support/AnnexK.h"

#include <safeclib/safe_mem_lib.h>
#include <safeclib/safe_str_lib.h>

#include <algorithm>
#include <cstdint>

// The library's names are macros for its checking functions; ours are functions of the same names.
#undef strcpy_s
#undef strnlen_s
#undef strncpy_s
#undef strncat_s
#undef memcpy_s
#undef memset_s
#undef strpbrk_s
#undef EOK
#undef ESNULLP
#undef ESZEROL
#undef ESLEMAX
#undef ESOVRLP
#undef ESNOSPC
#undef ESUNTERM
#undef ESNOTFND

// Every constraint is looked at here before the library is called, so its handler, which belongs to the whole
// process, is never reached.

namespace support {
namespace {

constexpr size_t kLargestBound = SIZE_MAX / 2;
constexpr size_t kTextPiece = RSIZE_MAX_STR;
constexpr size_t kMemoryPiece = RSIZE_MAX_MEM;
/// The library's word for "the object's size is not known here".
constexpr size_t kUnknownSize = static_cast<size_t>(-1);

int violatedBound(const void* dest, size_t dmax) {
  return dest == nullptr ? ESNULLP_S : dmax == 0 ? ESZEROL_S : dmax > kLargestBound ? ESLEMAX_S : EOK_S;
}

bool overlap(const void* a, size_t aSize, const void* b, size_t bSize) {
  const auto aBegin = reinterpret_cast<std::uintptr_t>(a);
  const auto bBegin = reinterpret_cast<std::uintptr_t>(b);
  return aBegin < bBegin + bSize && bBegin < aBegin + aSize;
}

int emptied(char* dest, int error) {
  *dest = '\0';
  return error;
}

void copyInPieces(char* dest, const char* src, size_t count) {
  while (count > 0) {
    const size_t piece = std::min(count, kMemoryPiece);
    _memcpy_s_chk(dest, piece, src, piece, kUnknownSize, kUnknownSize);
    dest += piece;
    src += piece;
    count -= piece;
  }
}

/// Copies length characters and a terminator; the constraints on the bounds hold already.
int placeText(char* dest, size_t room, const char* src, size_t length) {
  if (length >= room) {
    return ESNOSPC_S;
  }
  if (overlap(dest, length + 1, src, length + 1)) {
    return ESOVRLP_S;
  }
  copyInPieces(dest, src, length);
  dest[length] = '\0';
  return EOK_S;
}

}  // namespace

size_t strnlen_s(const char* text, size_t smax) {
  if (text == nullptr || smax == 0 || smax > kLargestBound) {
    return 0;
  }
  size_t length = 0;
  while (length < smax) {
    const size_t piece = std::min(smax - length, kTextPiece);
    const size_t found = _strnlen_s_chk(text + length, piece, kUnknownSize);
    length += found;
    if (found < piece) {
      break;
    }
  }
  return length;
}

int strcpy_s(char* dest, size_t dmax, const char* src) {
  if (const int error = violatedBound(dest, dmax)) {
    return error;
  }
  if (src == nullptr) {
    return emptied(dest, ESNULLP_S);
  }
  if (dest == src) {
    return strnlen_s(src, dmax) < dmax ? EOK_S : emptied(dest, ESNOSPC_S);
  }
  const int error = placeText(dest, dmax, src, strnlen_s(src, dmax));
  return error == EOK_S ? EOK_S : emptied(dest, error);
}

int strncpy_s(char* dest, size_t dmax, const char* src, size_t slen) {
  if (const int error = violatedBound(dest, dmax)) {
    return error;
  }
  if (src == nullptr || slen > kLargestBound) {
    return emptied(dest, src == nullptr ? ESNULLP_S : ESLEMAX_S);
  }
  const int error = placeText(dest, dmax, src, strnlen_s(src, slen));
  return error == EOK_S ? EOK_S : emptied(dest, error);
}

int strncat_s(char* dest, size_t dmax, const char* src, size_t slen) {
  if (const int error = violatedBound(dest, dmax)) {
    return error;
  }
  if (src == nullptr || slen > kLargestBound) {
    return emptied(dest, src == nullptr ? ESNULLP_S : ESLEMAX_S);
  }
  const size_t before = strnlen_s(dest, dmax);
  if (before == dmax) {
    return emptied(dest, ESUNTERM_S);
  }
  const size_t length = strnlen_s(src, slen);
  const int error = overlap(dest, before + 1, src, length)
                        ? ESOVRLP_S
                        : placeText(dest + before, dmax - before, src, length);
  return error == EOK_S ? EOK_S : emptied(dest, error);
}

int memcpy_s(void* dest, size_t dmax, const void* src, size_t count) {
  if (const int error = violatedBound(dest, dmax)) {
    return error;
  }
  if (count == 0) {
    return EOK_S;
  }
  const int error = src == nullptr                     ? ESNULLP_S
                    : count > dmax                     ? ESNOSPC_S
                    : overlap(dest, count, src, count) ? ESOVRLP_S
                                                       : EOK_S;
  if (error != EOK_S) {
    return emptied(static_cast<char*>(dest), error);
  }
  copyInPieces(static_cast<char*>(dest), static_cast<const char*>(src), count);
  return EOK_S;
}

int memset_s(void* dest, size_t dmax, int value, size_t count) {
  if (const int error = violatedBound(dest, dmax)) {
    return error;
  }
  if (count > dmax) {
    return ESNOSPC_S;
  }
  auto* bytes = static_cast<char*>(dest);
  while (count > 0) {
    const size_t piece = std::min(count, kMemoryPiece);
    _memset_s_chk(bytes, piece, value & 0xff, piece, kUnknownSize);
    bytes += piece;
    count -= piece;
  }
  return EOK_S;
}

int strpbrk_s(char* dest, size_t dmax, char* src, size_t slen, char** first) {
  if (first == nullptr) {
    return ESNULLP_S;
  }
  *first = nullptr;
  if (const int error = violatedBound(dest, dmax)) {
    return error;
  }
  if (const int error = violatedBound(src, slen)) {
    return error;
  }
  bool isWanted[256] = {};
  const size_t wanted = strnlen_s(src, slen);
  for (size_t i = 0; i < wanted; ++i) {
    isWanted[static_cast<unsigned char>(src[i])] = true;
  }
  char* const end = dest + strnlen_s(dest, dmax);
  char* const found =
      std::find_if(dest, end, [&](char c) { return isWanted[static_cast<unsigned char>(c)]; });
  if (found == end) {
    return ESNOTFND_S;
  }
  *first = found;
  return EOK_S;
}

}  // namespace support
