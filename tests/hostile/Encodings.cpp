#include "tests/hostile/Encodings.h"

#include <brotli/encode.h>
#include <zlib.h>
#include <zstd.h>

#include <cstdint>
#include <stdexcept>

namespace test {
namespace {

void check(bool isRight) {
  if (!isRight) {
    throw std::runtime_error("cannot encode");
  }
}

std::string compressedByZlib(const std::string& text, int windowBits) {
  constexpr int kMemory = 8;
  z_stream stream{};
  check(deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, windowBits, kMemory, Z_DEFAULT_STRATEGY) == Z_OK);
  std::string result(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(result.data());
  stream.avail_out = static_cast<uInt>(result.size());
  check(deflate(&stream, Z_FINISH) == Z_STREAM_END);
  result.resize(stream.total_out);
  deflateEnd(&stream);
  return result;
}

}  // namespace

std::string gzipped(const std::string& text) {
  return compressedByZlib(text, MAX_WBITS + 16);
}

std::string deflated(const std::string& text) {
  return compressedByZlib(text, MAX_WBITS);
}

std::string brotlied(const std::string& text) {
  std::size_t size = BrotliEncoderMaxCompressedSize(text.size());
  std::string result(size, '\0');
  check(BrotliEncoderCompress(1, BROTLI_DEFAULT_WINDOW, BROTLI_DEFAULT_MODE, text.size(),
                              reinterpret_cast<const std::uint8_t*>(text.data()), &size,
                              reinterpret_cast<std::uint8_t*>(result.data())) == BROTLI_TRUE);
  result.resize(size);
  return result;
}

std::string zstandarded(const std::string& text) {
  std::string result(ZSTD_compressBound(text.size()), '\0');
  const std::size_t size = ZSTD_compress(result.data(), result.size(), text.data(), text.size(), 1);
  check(ZSTD_isError(size) == 0U);
  result.resize(size);
  return result;
}

}  // namespace test
