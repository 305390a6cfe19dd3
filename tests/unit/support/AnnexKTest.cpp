// The bounds-checked functions, below and above the caps of the library beneath.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/AnnexK.h"

namespace support {
namespace {

// The library's own caps: 32 KB for texts, 256 MB for memory.
constexpr size_t kAboveTextCap = 100'000;
constexpr size_t kAboveMemoryCap = (size_t{256} << 20) + 12'345;

std::vector<char> bufferOf(size_t size) {
  return std::vector<char>(size, '#');
}

TEST(AnnexK, StrcpyCopiesWithTheTerminator) {
  for (const size_t length : {size_t{0}, size_t{1}, size_t{100}, kAboveTextCap}) {
    const std::string text(length, 't');
    auto buffer = bufferOf(length + 2);
    EXPECT_EQ(strcpy_s(buffer.data(), length + 1, text.c_str()), EOK_S) << length;
    EXPECT_STREQ(buffer.data(), text.c_str());
    EXPECT_EQ(buffer[length + 1], '#') << "wrote behind the bound";
  }
}

TEST(AnnexK, StrcpyRefusesWhatDoesNotFit) {
  for (const size_t length : {size_t{1}, size_t{100}, kAboveTextCap}) {
    const std::string text(length, 't');
    auto buffer = bufferOf(length + 1);
    EXPECT_EQ(strcpy_s(buffer.data(), length, text.c_str()), ESNOSPC_S) << length;
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[length], '#');
  }
  char buffer[4] = "abc";
  EXPECT_EQ(strcpy_s(nullptr, 4, "x"), ESNULLP_S);
  EXPECT_EQ(strcpy_s(buffer, 0, "x"), ESZEROL_S);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(strcpy_s(buffer, SIZE_MAX, "x"), ESLEMAX_S);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(strcpy_s(buffer, 4, buffer + 1), ESOVRLP_S);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(strcpy_s(buffer, 4, nullptr), ESNULLP_S);
}

TEST(AnnexK, StrnlenCountsUpToItsBound) {
  const std::string text(kAboveTextCap, 't');
  EXPECT_EQ(strnlen_s(text.c_str(), 0x7fffffff), kAboveTextCap);
  EXPECT_EQ(strnlen_s(text.c_str(), kAboveTextCap - 1), kAboveTextCap - 1);
  EXPECT_EQ(strnlen_s(text.c_str(), 5), 5u);
  EXPECT_EQ(strnlen_s("abc", 10), 3u);
  EXPECT_EQ(strnlen_s("", 10), 0u);
  EXPECT_EQ(strnlen_s(nullptr, 10), 0u);
  EXPECT_EQ(strnlen_s("abc", 0), 0u);
  EXPECT_EQ(strnlen_s("abc", SIZE_MAX), 0u);
  for (const size_t length : {size_t{32'767}, size_t{32'768}, size_t{32'769}, size_t{65'536}}) {
    EXPECT_EQ(strnlen_s(std::string(length, 't').c_str(), 1'000'000), length);
  }
}

TEST(AnnexK, StrnlenReadsNothingBehindItsBound) {
  // The block ends where the bound does, so that a sanitizer sees a read too many.
  const auto block = std::make_unique<char[]>(kAboveTextCap);
  std::memset(block.get(), 't', kAboveTextCap);
  EXPECT_EQ(strnlen_s(block.get(), kAboveTextCap), kAboveTextCap);
}

TEST(AnnexK, StrncpyCopiesAPrefix) {
  const std::string text(kAboveTextCap, 't');
  auto buffer = bufferOf(kAboveTextCap + 1);
  EXPECT_EQ(strncpy_s(buffer.data(), buffer.size(), text.c_str(), 0x7fffffff), EOK_S);
  EXPECT_EQ(std::strlen(buffer.data()), kAboveTextCap);
  EXPECT_EQ(strncpy_s(buffer.data(), buffer.size(), text.c_str(), 3), EOK_S);
  EXPECT_STREQ(buffer.data(), "ttt");
  EXPECT_EQ(strncpy_s(buffer.data(), buffer.size(), "abc", 0), EOK_S);
  EXPECT_STREQ(buffer.data(), "");
  EXPECT_EQ(strncpy_s(buffer.data(), 3, "abc", 3), ESNOSPC_S);
  EXPECT_STREQ(buffer.data(), "");
  EXPECT_EQ(strncpy_s(buffer.data(), 4, nullptr, 3), ESNULLP_S);
  EXPECT_EQ(strncpy_s(nullptr, 4, "abc", 3), ESNULLP_S);
}

TEST(AnnexK, StrncatAppends) {
  auto buffer = bufferOf(2 * kAboveTextCap + 1);
  const std::string text(kAboveTextCap, 't');
  buffer[0] = '\0';
  EXPECT_EQ(strncat_s(buffer.data(), buffer.size(), text.c_str(), 0x7fffffff), EOK_S);
  EXPECT_EQ(strncat_s(buffer.data(), buffer.size(), text.c_str(), kAboveTextCap), EOK_S);
  EXPECT_EQ(std::strlen(buffer.data()), 2 * kAboveTextCap);
  EXPECT_EQ(strncat_s(buffer.data(), buffer.size(), "x", 1), ESNOSPC_S);
  EXPECT_STREQ(buffer.data(), "");
  char full[2] = {'a', 'b'};
  EXPECT_EQ(strncat_s(full, 2, "x", 1), ESUNTERM_S);
  char small[8] = "ab";
  EXPECT_EQ(strncat_s(small, sizeof(small), "cdef", 2), EOK_S);
  EXPECT_STREQ(small, "abcd");
}

TEST(AnnexK, MemcpyCopiesAboveTheCap) {
  const auto source = std::make_unique<char[]>(kAboveMemoryCap);
  const auto target = std::make_unique<char[]>(kAboveMemoryCap);
  source[0] = 'f';
  source[(size_t{256} << 20) - 1] = 'm';
  source[size_t{256} << 20] = 'n';
  source[kAboveMemoryCap - 1] = 'l';
  EXPECT_EQ(memcpy_s(target.get(), kAboveMemoryCap, source.get(), kAboveMemoryCap), EOK_S);
  EXPECT_EQ(std::memcmp(source.get(), target.get(), kAboveMemoryCap), 0);
}

TEST(AnnexK, MemcpyRefusesBadBounds) {
  char bytes[8] = "1234567";
  EXPECT_EQ(memcpy_s(bytes, 4, "abcde", 5), ESNOSPC_S);
  EXPECT_EQ(bytes[0], '\0');
  EXPECT_EQ(memcpy_s(bytes, 4, "ab", 0), EOK_S);
  EXPECT_EQ(memcpy_s(bytes, 4, nullptr, 2), ESNULLP_S);
  EXPECT_EQ(memcpy_s(nullptr, 4, "ab", 2), ESNULLP_S);
  EXPECT_EQ(memcpy_s(bytes, 0, "ab", 2), ESZEROL_S);
  EXPECT_EQ(memcpy_s(bytes, 8, bytes + 1, 4), ESOVRLP_S);
}

TEST(AnnexK, MemsetFillsAboveTheCap) {
  const auto bytes = std::make_unique<char[]>(kAboveMemoryCap + 1);
  EXPECT_EQ(memset_s(bytes.get(), kAboveMemoryCap, 'x', kAboveMemoryCap), EOK_S);
  EXPECT_EQ(bytes[0], 'x');
  EXPECT_EQ(bytes[size_t{256} << 20], 'x');
  EXPECT_EQ(bytes[kAboveMemoryCap - 1], 'x');
  EXPECT_EQ(bytes[kAboveMemoryCap], '\0');
  EXPECT_EQ(memset_s(bytes.get(), 4, 'x', 5), ESNOSPC_S);
  EXPECT_EQ(memset_s(nullptr, 4, 'x', 4), ESNULLP_S);
}

TEST(AnnexK, StrpbrkFindsTheFirstOfASet) {
  std::string text = std::string(kAboveTextCap, 't') + ";,";
  char set[] = ",;";
  char* first = nullptr;
  EXPECT_EQ(strpbrk_s(text.data(), text.size() + 1, set, 2, &first), EOK_S);
  EXPECT_EQ(first, text.data() + kAboveTextCap);
  EXPECT_EQ(strpbrk_s(text.data(), kAboveTextCap, set, 2, &first), ESNOTFND_S);
  EXPECT_EQ(first, nullptr);
  EXPECT_EQ(strpbrk_s(text.data(), text.size(), set, 2, nullptr), ESNULLP_S);
  EXPECT_EQ(strpbrk_s(nullptr, 1, set, 2, &first), ESNULLP_S);
}

}  // namespace
}  // namespace support
