#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct ssl_ctx_st;         // OpenSSL's SSL_CTX
struct ssl_st;             // OpenSSL's SSL
struct x509_store_ctx_st;  // OpenSSL's X509_STORE_CTX

namespace ecu::koru::com {

/// The TLS context that the client library uses in place of its own. The library loads the files into it and
/// sets its options, but this class decides whether the broker is trusted, because the library does not say
/// why it is not.
///
/// One thread at a time may use it.
class TlsContext {
 public:
  /// `host` is the name or address that the broker's certificate must have.
  explicit TlsContext(std::string host);

  [[nodiscard]] ssl_ctx_st* get() const { return m_context.get(); }

  /// Returns the fault of the broker's certificate in the last handshake, for a log text; empty if none.
  [[nodiscard]] const std::string& distrust() const { return m_distrust; }
  /// Returns true if the peer sent application data.
  [[nodiscard]] bool answered() const { return m_answered; }
  /// To be called before each connection: the two results above are about the present one.
  void forget();

 private:
  struct Free {
    void operator()(ssl_ctx_st* context) const;
  };
  static int verify(x509_store_ctx_st* chain, void* self);
  static void observe(int written, int version, int type, const void* bytes, size_t length, ssl_st* tls,
                      void* self);

  const std::string m_host;
  std::unique_ptr<ssl_ctx_st, Free> m_context;
  std::string m_distrust;
  bool m_answered = false;
};

}  // namespace ecu::koru::com
