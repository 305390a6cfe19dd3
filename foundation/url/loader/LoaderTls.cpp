#include "foundation/url/loader/LoaderTls.h"

#include <openssl/ssl.h>

#include "foundation/security/CertificateStore.h"

namespace foundation {
namespace {

CURLcode useCertificateStore(CURL*, void* context, void*) {
  X509_STORE* store = CertificateStore::shared();
  if (store == nullptr) {
    return CURLE_OUT_OF_MEMORY;
  }
  SSL_CTX_set1_cert_store(static_cast<SSL_CTX*>(context), store);
  return CURLE_OK;
}

}  // namespace

bool configureTls(CURL* easy) {
  // Without a CA file of its own curl does not parse the system's bundle anew for every connection.
  return curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2)) == CURLE_OK &&
         curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, &useCertificateStore) == CURLE_OK;
}

}  // namespace foundation
