#include "platform/TlsContext.h"

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

namespace ecu::koru::com {

namespace {

/// X509_V_OK when the chain was good and the library refused the host's name in it: that it tells itself.
std::string reason_of(int error) {
  switch (error) {
    case X509_V_OK:
      return {};
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return "the broker's certificate is not valid yet; is the clock of this unit right?";
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return "the broker's certificate has expired";
    default:
      return std::string("the broker's certificate is not signed by tls_ca: ") +
             X509_verify_cert_error_string(error);
  }
}

}  // namespace

TlsContext::TlsContext() : m_context(SSL_CTX_new(TLS_client_method())) {
  if (m_context) SSL_CTX_set_cert_verify_callback(get(), &TlsContext::verify, this);
}

void TlsContext::Free::operator()(ssl_ctx_st* context) const {
  SSL_CTX_free(context);
}

int TlsContext::verify(x509_store_ctx_st* chain, void* self) {
  const int good = X509_verify_cert(chain);
  if (good <= 0) static_cast<TlsContext*>(self)->m_distrust = reason_of(X509_STORE_CTX_get_error(chain));
  return good;
}

}  // namespace ecu::koru::com
