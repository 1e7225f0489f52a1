#include "live/proxy/front/interceptor.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <boost/asio/ssl/error.hpp>
#include <stdexcept>
#include <string_view>

namespace live {
namespace {

namespace ssl = boost::asio::ssl;

constexpr size_t kMostCertificates = 256;
constexpr size_t kMostExceptions = 1000;
constexpr std::time_t kUseCertificateS = 6 * 24 * 3600;  // of the seven days that it is valid

// Of what the browser offers, HTTP/1.1; nothing when it does not offer that.
int SelectProtocol(SSL* /*connection*/, const unsigned char** out, unsigned char* outSize,
                   const unsigned char* offered, unsigned int offeredSize, void* /*argument*/) {
  constexpr std::string_view kHttp1 = "http/1.1";
  for (unsigned int at = 0; at < offeredSize; at += 1U + offered[at]) {
    const std::string_view name(reinterpret_cast<const char*>(offered) + at + 1, offered[at]);
    if (name != kHttp1) continue;
    *out = offered + at + 1;
    *outSize = offered[at];
    return SSL_TLSEXT_ERR_OK;
  }
  return SSL_TLSEXT_ERR_NOACK;
}

TlsContext MakeServersContext(const std::string& authorityFile) {
  auto context = std::make_shared<ssl::context>(ssl::context::tls_client);
  boost::system::error_code error;
  if (authorityFile.empty()) {
    context->set_default_verify_paths(error);
  } else {
    context->load_verify_file(authorityFile, error);
  }
  if (error) {
    throw std::runtime_error("the certificates to trust cannot be read from '" + authorityFile +
                             "': " + error.message());
  }
  context->set_verify_mode(ssl::verify_peer);
  SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
  return context;
}

}  // namespace

Interceptor::Interceptor(const FrontSettings& settings)
    : settings_(settings),
      servers_(MakeServersContext(settings.upstreamCaFile)),
      made_(kMostCertificates),
      exceptions_(kMostExceptions) {}

bool Interceptor::Intercepts(const std::string& host) const {
  if (settings_.authority == nullptr || exceptions_.Peek(host) != nullptr) return false;
  const auto& never = settings_.neverIntercept;
  return MayCertify(*settings_.authority, host) &&
         std::none_of(never.begin(), never.end(),
                      [&host](const auto& domain) { return IsBelow(host, domain); });
}

void Interceptor::Except(const std::string& host) {
  exceptions_.Use(host) = true;
  exceptions_.DropExcess();
  made_.Erase(host);
}

TlsContext Interceptor::ForBrowser(const std::string& host) {
  Made& made = made_.Use(host);
  const std::time_t now = std::time(nullptr);
  if (made.context != nullptr && now >= made.when && now - made.when < kUseCertificateS) return made.context;
  // Browsers look for the name without the dot that says that it is complete.
  const Leaf leaf =
      MakeLeaf(*settings_.authority, host.ends_with('.') ? host.substr(0, host.size() - 1) : host);
  auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
  SSL_CTX* const raw = context->native_handle();
  SSL_CTX_set_min_proto_version(raw, TLS1_2_VERSION);
  SSL_CTX_set_mode(raw, SSL_MODE_RELEASE_BUFFERS);
  SSL_CTX_set_session_cache_mode(raw, SSL_SESS_CACHE_OFF);  // clients keep theirs, in tickets
  SSL_CTX_set_alpn_select_cb(raw, SelectProtocol, nullptr);
  // Browsers in throw-away profiles look for the root in what they are sent.
  if (SSL_CTX_use_certificate(raw, leaf.certificate.get()) != 1 ||
      SSL_CTX_use_PrivateKey(raw, leaf.key.get()) != 1 ||
      SSL_CTX_add1_chain_cert(raw, settings_.authority->root.get()) != 1) {
    throw std::runtime_error("OpenSSL cannot use a certificate");
  }
  made = {.context = context, .when = now};
  made_.DropExcess();
  return context;
}

bool IsCertificateRefusal(const boost::system::error_code& error) {
  if (error.category() != boost::asio::error::get_ssl_category()) return false;
  switch (ERR_GET_REASON(static_cast<unsigned long>(error.value()))) {
    case SSL_R_SSLV3_ALERT_BAD_CERTIFICATE:
    case SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN:
    case SSL_R_TLSV1_ALERT_UNKNOWN_CA:
      return true;
    default:
      return false;
  }
}

}  // namespace live
