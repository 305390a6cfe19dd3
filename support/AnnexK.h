#pragma once

// The bounds-checked functions of C11 Annex K, under their names and contracts, without the size caps of the
// library beneath (32 KB for texts, 256 MB for memory): larger operands are worked on in pieces, in linear
// time. Bounds above RSIZE_MAX (half the address space) are still refused. No constraint handler is ever
// called: a violated constraint is reported by the returned value alone. Any thread.

#include <cstddef>

namespace support {

/// What the functions return: 0, or the number of the violated constraint. On an error of a writing function,
/// dest (if it is there and its bound is in range) is made empty.
inline constexpr int EOK_S = 0;
inline constexpr int ESNULLP_S = 400;   ///< a null pointer
inline constexpr int ESZEROL_S = 401;   ///< a bound of zero
inline constexpr int ESLEMAX_S = 403;   ///< a bound above RSIZE_MAX
inline constexpr int ESOVRLP_S = 404;   ///< source and destination overlap
inline constexpr int ESNOSPC_S = 406;   ///< the result does not fit
inline constexpr int ESUNTERM_S = 407;  ///< no terminator within the bound
inline constexpr int ESNOTFND_S = 409;  ///< nothing found

/// Copies src with its terminator into dest, which holds dmax bytes.
int strcpy_s(char* dest, size_t dmax, const char* src);

/// The length of text, at most smax; 0 for a null text, a zero bound or a bound above RSIZE_MAX.
size_t strnlen_s(const char* text, size_t smax);

/// Copies at most slen characters of src and a terminator into dest, which holds dmax bytes.
int strncpy_s(char* dest, size_t dmax, const char* src, size_t slen);

/// Appends at most slen characters of src and a terminator to the text in dest, which holds dmax bytes.
int strncat_s(char* dest, size_t dmax, const char* src, size_t slen);

/// Copies count bytes into dest, which holds dmax bytes.
int memcpy_s(void* dest, size_t dmax, const void* src, size_t count);

/// Sets count bytes of dest, which holds dmax bytes, to the low byte of value.
int memset_s(void* dest, size_t dmax, int value, size_t count);

/// The first character of dest (a text within dmax bytes) that is one of the first slen characters of src;
/// *first is null when there is none.
int strpbrk_s(char* dest, size_t dmax, char* src, size_t slen, char** first);

}  // namespace support
