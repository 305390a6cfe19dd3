// Runs with an environment in which nothing of the developer's own decides how requests go.

#include <gtest/gtest.h>

#include <cstdlib>

#ifdef TRACE_GUARD_LEVEL
#include "tests/host/TraceGuard.h"
#endif

int main(int argc, char** argv) {
  for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY", "HTTPS_PROXY",
                           "ALL_PROXY", "NO_PROXY", "SSL_CERT_FILE", "SSL_CERT_DIR", "ZEP_URL_TIMEOUT_MS",
                           "ZEP_URL_MAX_BODY_BYTES", "ZEP_APPLICATIONS_DIR"}) {
    unsetenv(name);
  }
  // The one that knows no settings.
  setenv("GIO_USE_PROXY_RESOLVER", "dummy", 1);
#ifdef TRACE_GUARD_LEVEL
  test::guardTraces(TRACE_GUARD_LEVEL);
#endif
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
