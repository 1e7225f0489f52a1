#include "live/proxy/front/handshake.h"

#include <exception>
#include <utility>

#include "live/proxy/front/browser_connection.h"
#include "live/proxy/front/tunnel.h"

namespace live {
namespace {

namespace asio = boost::asio;

enum class Guess { Tls, Http, Other, TooEarly };

constexpr size_t kMostHead = size_t{16} * 1024;  // bytes that are looked at
constexpr std::string_view kGet = "GET ";

// A record of the handshake (22), of version 3, that holds a ClientHello (1); or a WebSocket in the clear,
// whose head is waited for.
Guess GuessProtocol(const std::string& bytes) {
  if (bytes.size() > kGet.size() ? bytes.starts_with(kGet) : !bytes.empty() && kGet.starts_with(bytes)) {
    if (bytes.find("\r\n\r\n") != std::string::npos) return Guess::Http;
    return bytes.size() < kMostHead ? Guess::TooEarly : Guess::Other;
  }
  constexpr size_t kRecordHead = 5;
  const bool begins = (bytes.empty() || bytes[0] == 22) && (bytes.size() < 2 || bytes[1] == 3) &&
                      (bytes.size() <= kRecordHead || bytes[kRecordHead] == 1);
  if (!begins) return Guess::Other;
  return bytes.size() > kRecordHead ? Guess::Tls : Guess::TooEarly;
}

}  // namespace

Handshake::Handshake(FrontContext& front, std::unique_ptr<Stream> browser, HostPort target,
                     std::string toBrowser, std::string read)
    : front_(front),
      browser_(std::move(browser)),
      target_(std::move(target)),
      toBrowser_(std::move(toBrowser)),
      read_(std::move(read)),
      lastUs_(front.NowUs()) {}

void Handshake::Start() {
  browser_->Write(asio::buffer(toBrowser_), [this, self = shared_from_this()](const Error& error, size_t) {
    if (closed_) return;
    error ? End() : Look();
  });
}

void Handshake::Close() {
  if (std::exchange(closed_, true)) return;
  Error ignored;
  tls_ != nullptr ? tls_->Tcp().close(ignored) : browser_->Tcp().close(ignored);
}

void Handshake::End() {
  Close();
  front_.remove(this);
}

void Handshake::LookAtClock(int64_t nowUs) {
  // Browsers open connections ahead of their needs, and say nothing for a while.
  const int64_t limitMs = tls_ == nullptr && read_.empty() ? front_.settings.idleMs : front_.settings.headMs;
  if (nowUs - lastUs_ >= limitMs * 1000) End();
}

void Handshake::Look() {
  switch (GuessProtocol(read_)) {
    case Guess::Tls:
      return BeginTls();
    case Guess::Http:
      return BeginTunnel(AddressesForHttp());
    case Guess::Other:
      return BeginTunnel({});
    case Guess::TooEarly:
      break;
  }
  browser_->ReadSome(asio::buffer(chunk_),
                     [this, self = shared_from_this()](const Error& error, size_t count) {
                       if (closed_) return;
                       if (error) return End();
                       if (read_.empty()) lastUs_ = front_.NowUs();
                       read_.append(chunk_.data(), count);
                       Look();
                     });
}

AddressRule Handshake::AddressesForHttp() const {
  const size_t line = read_.find("\r\n");
  const std::string path = read_.substr(kGet.size(), read_.find(' ', kGet.size()) - kGet.size());
  return front_.handler.AddressesFor({.method = "GET",
                                      .url = "http://" + ToText(target_, 80) + path,
                                      .headers = read_.substr(line + 2, read_.find("\r\n\r\n", line) - line),
                                      .body = nullptr});
}

void Handshake::BeginTunnel(AddressRule mayReach) {
  closed_ = true;
  front_.replace(this, std::make_shared<Tunnel>(front_, std::move(browser_),
                                                TunnelRequest{.target = target_,
                                                              .mayReach = std::move(mayReach),
                                                              .toServer = std::move(read_),
                                                              .explain = false}));
}

void Handshake::BeginTls() {
  try {
    const TlsContext context = front_.interceptor.ForBrowser(target_.host);
    tls_ = std::make_unique<TlsServerStream>(std::move(browser_->Tcp()), context->native_handle(),
                                             std::move(read_));
  } catch (const std::exception& error) {
    front_.Tell("no certificate can be made for " + target_.host + ": " + error.what());
    return End();
  }
  browser_ = nullptr;
  tls_->Accept([this, self = shared_from_this()](const Error& error) {
    if (closed_) return;
    if (!error) return TlsStands();
    if (IsCertificateRefusal(error)) front_.CertificateRefused(target_.host);
    End();
  });
}

void Handshake::TlsStands() {
  closed_ = true;
  front_.replace(
      this, std::make_shared<BrowserConnection>(front_, std::move(tls_), "https://" + ToText(target_, 443)));
}

}  // namespace live
