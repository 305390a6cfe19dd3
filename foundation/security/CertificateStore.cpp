#include "foundation/security/CertificateStore.h"

#include "foundation/base/Trace.h"

namespace foundation {

X509_STORE* CertificateStore::shared() {
  // Never freed: connections may still use it while the process exits.
  static X509_STORE* const store = [] {
    X509_STORE* made = X509_STORE_new();
    if (made != nullptr && X509_STORE_set_default_paths(made) != 1) {
      trace(TraceLevel::Warning, "the certificate store cannot be loaded; no server will be trusted");
    }
    return made;
  }();
  return store;
}

}  // namespace foundation
