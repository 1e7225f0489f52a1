#include "live/proxy/front/tunnel.h"

#include <boost/asio/error.hpp>
#include <utility>

#include "live/proxy/front/response_head.h"

namespace live {

namespace asio = boost::asio;

Tunnel::Tunnel(FrontContext& front, std::unique_ptr<Stream> browser, TunnelRequest request)
    : front_(front),
      request_(std::move(request)),
      browser_(std::move(browser)),
      dialer_(std::make_shared<Dialer>(front)),
      lastUs_(front.NowUs()) {
  up_.from = down_.to = browser_.get();
  up_.first = std::move(request_.toServer);
  down_.first = std::move(request_.toBrowser);
}

void Tunnel::Start() {
  const auto self = std::static_pointer_cast<Tunnel>(shared_from_this());
  dialer_->Dial(request_.target, request_.mayReach, [self](std::variant<Socket, Refusal> result) {
    if (self->closed_) return;
    if (const auto* const refusal = std::get_if<Refusal>(&result)) return self->Fail(*refusal);
    Socket& socket = std::get<Socket>(result);
    self->request_.secure ? self->Secure(std::move(socket))
                          : self->Reached(MakePlainStream(std::move(socket)));
  });
  Read(up_);  // a browser that goes away meanwhile is noticed
}

void Tunnel::Close() {
  if (!std::exchange(closed_, true)) CloseBoth(false);
}

void Tunnel::CloseBoth(bool reset) {
  dialer_->Cancel();
  browser_->Close(reset);
  if (server_ != nullptr) server_->Close(reset);
  Error ignored;
  if (securing_ != nullptr) securing_->next_layer().close(ignored);
}

void Tunnel::LookAtClock(int64_t nowUs) {
  const bool connecting = server_ == nullptr;
  const int64_t limitMs = connecting ? front_.settings.connectMs : front_.settings.tunnelIdleMs;
  if (nowUs - lastUs_ < limitMs * 1000) return;
  if (!connecting || !failure_.empty()) return End(false);
  Fail({504, "The server " + ToText(request_.target, 0) + " did not answer in time."});
}

void Tunnel::Secure(Socket socket) {
  const std::string& host = request_.target.host;
  securing_ = std::make_unique<TlsSocket>(std::move(socket), *front_.interceptor.ForServers());
  SSL* const tls = securing_->native_handle();
  const bool isAddress = X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls), host.c_str()) == 1;
  if (!isAddress &&
      (SSL_set1_host(tls, host.c_str()) != 1 || SSL_set_tlsext_host_name(tls, host.c_str()) != 1)) {
    return Fail({502, "The server " + host + " cannot be reached over TLS."});
  }
  securing_->async_handshake(TlsSocket::client, [this, self = shared_from_this()](const Error& error) {
    if (closed_ || !failure_.empty()) return;
    if (!error) return Reached(MakeTlsStream(std::move(securing_)));
    const long verified = SSL_get_verify_result(securing_->native_handle());
    const std::string why = verified == X509_V_OK ? error.message() : X509_verify_cert_error_string(verified);
    Fail({502, "The server " + ToText(request_.target, 0) + " cannot be reached over TLS: " + why + "."});
  });
}

void Tunnel::Reached(std::unique_ptr<Stream> server) {
  Error ignored;
  server->Tcp().set_option(asio::ip::tcp::no_delay(true), ignored);
  server_ = std::move(server);
  up_.to = down_.from = server_.get();
  lastUs_ = front_.NowUs();
  for (Way* const way : {&up_, &down_}) {
    if (!way->first.empty()) {
      Write(*way, way->first.data(), way->first.size());
    } else if (way->held > 0) {
      Write(*way, way->buffer.data(), std::exchange(way->held, 0));
    } else {
      Read(*way);
    }
  }
}

void Tunnel::Read(Way& way) {
  if (way.reading || way.held > 0) return;
  way.reading = true;
  way.from->ReadSome(asio::buffer(way.buffer),
                     [this, self = shared_from_this(), &way](const Error& error, size_t count) {
                       way.reading = false;
                       if (closed_) return;
                       lastUs_ = front_.NowUs();
                       if (error) {
                         if (way.to == nullptr || error != asio::error::eof) return End(true);
                         way.atEnd = true;
                         if (way.first.empty()) EndWay(way);
                         return;
                       }
                       if (way.to == nullptr || !way.first.empty()) {
                         way.held = count;
                       } else {
                         Write(way, way.buffer.data(), count);
                       }
                     });
}

void Tunnel::Write(Way& way, const char* bytes, size_t count) {
  way.to->Write(asio::buffer(bytes, count),
                [this, self = shared_from_this(), &way](const Error& error, size_t) {
                  if (closed_) return;
                  lastUs_ = front_.NowUs();
                  if (error) return End(true);
                  way.first.clear();
                  if (way.held > 0) return Write(way, way.buffer.data(), std::exchange(way.held, 0));
                  if (way.atEnd) return EndWay(way);
                  Read(way);
                });
}

void Tunnel::EndWay(Way& way) {
  way.ended = true;
  way.to->EndSending([this, self = shared_from_this()](const Error&, size_t) {
    if (!closed_ && up_.ended && down_.ended) End(false);
  });
}

void Tunnel::Fail(const Refusal& refusal) {
  front_.Tell(refusal.why);
  if (!request_.explain) return End(false);
  failure_ = MakeErrorPage(refusal.status, refusal.why, "CONNECT", false);
  dialer_->Cancel();
  browser_->Write(asio::buffer(failure_), [this, self = shared_from_this()](const Error&, size_t) {
    if (!closed_) End(false);
  });
}

void Tunnel::End(bool reset) {
  if (std::exchange(closed_, true)) return;
  CloseBoth(reset);
  front_.remove(this);
}

}  // namespace live
