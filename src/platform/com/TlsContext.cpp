#include "platform/com/TlsContext.h"

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <utility>

namespace ecu::koru::com {

namespace {

/// Returns true if the certificate holds the host, as a name or as an address.
bool belongs_to(X509* certificate, const std::string& host) {
  return certificate != nullptr && (X509_check_ip_asc(certificate, host.c_str(), 0) == 1 ||
                                    X509_check_host(certificate, host.c_str(), host.size(), 0, nullptr) == 1);
}

/// `depth` is the position of the error in the chain; 0 is the broker's own certificate.
std::string reason_of(int error, int depth) {
  const std::string certificate = depth > 0 ? "the authority's certificate " : "the broker's certificate ";
  switch (error) {
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return certificate + "is not valid yet; is the clock of this unit right?";
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return certificate + "has expired";
    case X509_V_ERR_HOSTNAME_MISMATCH:
      return "the broker's certificate is of another host";
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
      return std::string("the broker's certificate is not signed by tls_ca: ") +
             X509_verify_cert_error_string(error);
    default:
      return certificate + "cannot be trusted: " + X509_verify_cert_error_string(error);
  }
}

}  // namespace

TlsContext::TlsContext(std::string host)
    : m_host(std::move(host)), m_context(SSL_CTX_new(TLS_client_method())) {
  if (!m_context) return;
  SSL_CTX_set_verify(get(), SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_cert_verify_callback(get(), &TlsContext::verify, this);
  SSL_CTX_set_msg_callback(get(), &TlsContext::observe);
  SSL_CTX_set_msg_callback_arg(get(), this);
}

void TlsContext::forget() {
  m_distrust.clear();
  m_answered = false;
}

void TlsContext::Free::operator()(ssl_ctx_st* context) const {
  SSL_CTX_free(context);
}

int TlsContext::verify(x509_store_ctx_st* chain, void* self) {
  auto& context = *static_cast<TlsContext*>(self);
  // Replaces the library's own check of the host's name, which would need a context that the library made.
  X509_STORE_CTX_set_verify_cb(chain, [](int good, X509_STORE_CTX* /*chain*/) { return good; });
  const bool trusted = X509_verify_cert(chain) == 1;
  if (trusted && belongs_to(X509_STORE_CTX_get0_cert(chain), context.m_host)) return 1;
  if (trusted) X509_STORE_CTX_set_error(chain, X509_V_ERR_HOSTNAME_MISMATCH);
  context.m_distrust = reason_of(X509_STORE_CTX_get_error(chain), X509_STORE_CTX_get_error_depth(chain));
  return 0;
}

/// TLS 1.3 hides the type of a record in its encrypted part.
void TlsContext::observe(int written, int /*version*/, int type, const void* bytes, size_t length,
                         ssl_st* tls, void* self) {
  const int place = SSL_version(tls) == TLS1_3_VERSION ? SSL3_RT_INNER_CONTENT_TYPE : SSL3_RT_HEADER;
  if (written != 0 || type != place || length == 0) return;
  if (*static_cast<const unsigned char*>(bytes) == SSL3_RT_APPLICATION_DATA)
    static_cast<TlsContext*>(self)->m_answered = true;
}

}  // namespace ecu::koru::com
