// The evaluation of a server's certificates, and what the first one in a process pays: loading the store.

#include <benchmark/benchmark.h>
#include <openssl/x509_vfy.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "foundation/security/Trust.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using foundation::Trust;
using foundation::TrustPolicy;
using foundation::TrustResult;

/// The system's authorities, where Debian has them.
constexpr const char* kSystemFile = "/etc/ssl/certs/ca-certificates.crt";
constexpr const char* kSystemFolder = "/etc/ssl/certs";

/// An authority that is the only one this process trusts, and no settings of the user's.
class Surroundings {
 public:
  static const Surroundings& shared() {
    static const Surroundings surroundings;
    return surroundings;
  }

 private:
  Surroundings() {
    setenv("SSL_CERT_FILE", authority_.rootFile().c_str(), 1);
    setenv("SSL_CERT_DIR", folder_.path().c_str(), 1);
    setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
  }
  static std::vector<std::string> chainOf(const test::CertificateAuthority::Leaf& leaf) {
    return test::CertificateAuthority::derChain(leaf.chainFile);
  }

  test::TemporaryFolder folder_;
  test::CertificateAuthority authority_;

 public:
  const std::vector<std::string> good = chainOf(authority_.good());
  const std::vector<std::string> withIntermediate =
      chainOf(authority_.issueByIntermediate({.name = "intermediate-leaf"}));
  const std::vector<std::string> selfSigned = chainOf(authority_.selfSigned());
};

void loadStore(benchmark::State& state, const char* file, const char* folder) {
  // Behind it comes what the other benchmarks need.
  const Surroundings& surroundings = Surroundings::shared();
  benchmark::DoNotOptimize(&surroundings);
  const std::string fileBefore = std::getenv("SSL_CERT_FILE");
  const std::string folderBefore = std::getenv("SSL_CERT_DIR");
  setenv("SSL_CERT_FILE", file, 1);
  setenv("SSL_CERT_DIR", folder, 1);
  for ([[maybe_unused]] const auto _ : state) {
    X509_STORE* store = X509_STORE_new();
    if (X509_STORE_set_default_paths(store) != 1) {
      state.SkipWithError("the store cannot be loaded");
    }
    X509_STORE_free(store);
  }
  setenv("SSL_CERT_FILE", fileBefore.c_str(), 1);
  setenv("SSL_CERT_DIR", folderBefore.c_str(), 1);
}

/// What the process's first evaluation does before it begins, with all authorities in one file.
void TrustStoreOfFile(benchmark::State& state) {
  loadStore(state, kSystemFile, "/nonexistent");
}
BENCHMARK(TrustStoreOfFile)->Unit(benchmark::kMicrosecond);

/// The same with a folder, as Debian's OpenSSL has it: a certificate is read when it is asked for.
void TrustStoreOfFolder(benchmark::State& state) {
  loadStore(state, "/nonexistent", kSystemFolder);
}
BENCHMARK(TrustStoreOfFolder)->Unit(benchmark::kMicrosecond);

void evaluate(benchmark::State& state, const std::vector<std::string>& chain, TrustResult expected) {
  for ([[maybe_unused]] const auto _ : state) {
    Trust trust(chain, TrustPolicy::ssl("localhost"));
    TrustResult result = TrustResult::Invalid;
    if (trust.evaluate(result) != 0 || result != expected) {
      state.SkipWithError("the evaluation came to something else");
    }
  }
}

void TrustGood(benchmark::State& state) {
  evaluate(state, Surroundings::shared().good, TrustResult::Unspecified);
}
BENCHMARK(TrustGood)->Unit(benchmark::kMicrosecond);

void TrustWithIntermediate(benchmark::State& state) {
  evaluate(state, Surroundings::shared().withIntermediate, TrustResult::Unspecified);
}
BENCHMARK(TrustWithIntermediate)->Unit(benchmark::kMicrosecond);

void TrustSelfSigned(benchmark::State& state) {
  evaluate(state, Surroundings::shared().selfSigned, TrustResult::RecoverableTrustFailure);
}
BENCHMARK(TrustSelfSigned)->Unit(benchmark::kMicrosecond);

}  // namespace
