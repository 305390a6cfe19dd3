#pragma once

#include <chrono>
#include <cstddef>

namespace foundation {

/// What a load may use. Read once, when the loader is made.
struct Limits {
  /// How long a load may go without a byte in either direction. ZEP_URL_TIMEOUT_MS, else 60 s.
  std::chrono::milliseconds idle;
  /// The most bytes of a body after decoding. ZEP_URL_MAX_BODY_BYTES, else half of the machine's memory.
  std::size_t bodyBytes;
  /// How many transfers may run side by side, from the process's descriptor limit and what it has open
  /// already.
  std::size_t transfers;

  static Limits ofThisProcess();
};

/// The header bytes of all answers of one load (interim, redirect and final ones count together for each
/// request).
inline constexpr std::size_t kHeaderBytesLimit = std::size_t{256} << 10;
/// A proxy's answer to CONNECT, head and body: curl has the loader thread while it reads one.
inline constexpr std::size_t kTunnelAnswerLimit = std::size_t{64} << 10;
/// Redirects followed before the load fails.
inline constexpr int kRedirectLimit = 20;
/// Challenges of one load, redirects included, before it fails: a server could ask for ever.
inline constexpr int kChallengeLimit = 50;
/// Answers that curl may take in one NTLM exchange before the load fails: the exchange itself has three.
inline constexpr int kNtlmAnswerLimit = 6;
/// A body that nobody wants, of a redirect or a challenge, is read to its end, so that its connection can be
/// used again, up to here...
inline constexpr std::size_t kDrainedBodyLimit = std::size_t{64} << 10;
/// ...no longer than this without a byte...
inline constexpr std::chrono::milliseconds kDrainIdle{500};
/// ...and no longer than this in all.
inline constexpr std::chrono::milliseconds kDrainTime{2000};

}  // namespace foundation
