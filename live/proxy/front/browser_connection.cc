#include "live/proxy/front/browser_connection.h"

#include <algorithm>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <cstdio>
#include <utility>
#include <variant>

#include "live/proxy/front/handshake.h"
#include "live/proxy/front/own_address.h"
#include "live/proxy/front/tunnel.h"

namespace live {

namespace asio = boost::asio;
namespace beast = boost::beast;

namespace {

constexpr size_t kMostPipelined = size_t{16} * 1024;  // bytes that are read ahead of their turn
constexpr int64_t kLeaveUs = 2'000'000;
constexpr size_t kMostThrownAway = size_t{4} * 1024 * 1024;

Refusal ExplainParserError(const Error& error) {
  if (error == beast::http::error::header_limit) return {431, "Its headers are too long for this proxy."};
  if (error == beast::http::error::bad_version)
    return {505, "This proxy supports only HTTP/1.1 and HTTP/1.0."};
  return {400, "It is not a valid HTTP request (" + error.message() + ")."};
}

// What the user reads when a load has failed before its response.
Refusal ExplainResult(int32_t result, const std::string& server) {
  switch (result) {
    case host::kTimedOut:
      return {504, "The server " + server + " did not answer in time."};
    case host::kNameNotResolved:
      return {502, "The name of the server " + server + " could not be resolved."};
    case host::kBlocked:
      return PrivateAddressRefusal(server);
    case host::kConnectionFailed:
      return {502, "The server " + server + " could not be reached."};
    case host::kConnectionClosed:
    case host::kEmptyResponse:
      return {502, "The server " + server + " closed the connection without a complete response."};
    case host::kCertificateError:
      return {502, "The certificate of the server " + server + " cannot be trusted."};
    case host::kInvalidResponse:
    case host::kHttp2ProtocolError:
    case host::kContentLengthMismatch:
      return {502, "The server " + server + " sent a response that is not valid."};
    default:
      return {502, "The request to the server " + server + " failed (error " + std::to_string(result) + ")."};
  }
}

}  // namespace

BrowserConnection::BrowserConnection(FrontContext& front, std::unique_ptr<Stream> stream,
                                     std::string secureOrigin, std::string read)
    : front_(front),
      stream_(std::move(stream)),
      secureOrigin_(std::move(secureOrigin)),
      lastUs_(front.NowUs()),
      input_(std::move(read)) {}

void BrowserConnection::Start() {
  Advance();
}

void BrowserConnection::Close() {
  if (phase_ == Phase::Closed) return;
  phase_ = Phase::Closed;
  if (body_ != nullptr) body_->Abandon();
  if (const host::LoadId load = std::exchange(load_, 0); load != 0) front_.handler.Cancel(load);
  stream_->Close(false);
}

void BrowserConnection::End(bool reset) {
  if (phase_ == Phase::Closed) return;
  const auto self = shared_from_this();
  stream_->Close(reset);
  Close();
  front_.remove(this);
}

void BrowserConnection::LookAtClock(int64_t nowUs) {
  const FrontSettings& settings = front_.settings;
  const int64_t quietUs = nowUs - lastUs_;
  switch (phase_) {
    case Phase::Waiting:
      if (input_.empty() && !parser_) {
        if (quietUs >= settings.idleMs * 1000) End(false);
      } else if (quietUs >= settings.headMs * 1000) {
        Refuse({408, "The head of the request did not arrive in time."});
      }
      break;
    case Phase::Exchanging:
      if (quietUs < settings.stallMs * 1000) break;
      if (!sending_.empty()) {
        End(true);
      } else if (reading_ && !UploadIsOver()) {
        BodyIsBroken(408, "The body of the request did not arrive in time.");
      }
      break;
    case Phase::Leaving:
      if (quietUs >= kLeaveUs) End(false);
      break;
    case Phase::Closed:
      break;
  }
}

// --- From the browser

void BrowserConnection::ReadMore() {
  if (reading_) return;
  reading_ = true;
  stream_->ReadSome(asio::buffer(chunk_),
                    [this, self = shared_from_this()](const Error& error, size_t count) {
                      reading_ = false;
                      if (phase_ == Phase::Closed) return;
                      if (tunnelIsDue_ && (!error || error == asio::error::operation_aborted)) {
                        input_.append(chunk_.data(), count);
                        return BeginTunnel();
                      }
                      // Browsers close when they give a load up, so that the end of one direction is that of
                      // both here.
                      if (error) {
                        if (!secureOrigin_.empty() && IsCertificateRefusal(error)) {
                          front_.CertificateRefused(ParseHostPort(secureOrigin_.substr(8), 443)->host);
                        }
                        return End(false);
                      }
                      if (phase_ == Phase::Leaving) {
                        thrownAway_ += count;
                        return thrownAway_ < kMostThrownAway ? ReadMore() : End(false);
                      }
                      // The time for a head counts from its first byte.
                      if (phase_ == Phase::Exchanging || (input_.empty() && !parser_)) Progress();
                      input_.append(chunk_.data(), count);
                      Advance();
                    });
}

// Does with what has been read what can be done now, and reads on where there is room.
void BrowserConnection::Advance() {
  if (tunnelIsDue_ || IsLastResponseMade()) return;
  if (phase_ == Phase::Waiting && !TakeHead()) return;
  if (phase_ == Phase::Exchanging && !UploadIsOver() && !TakeBody()) return;
  // What comes now is the next request, or the end of the connection.
  if (phase_ == Phase::Exchanging && input_.size() < kMostPipelined) ReadMore();
}

// False when there is no whole head, or nothing more is to be read for this request.
bool BrowserConnection::TakeHead() {
  if (!parser_) {
    // Some clients send an empty line after a body.
    input_.erase(0, std::min(input_.find_first_not_of("\r\n"), input_.size()));
    if (input_.empty()) {
      ReadMore();
      return false;
    }
    parser_.emplace();
    parser_->body_limit(boost::none);
    parser_->header_limit(static_cast<std::uint32_t>(front_.settings.maxHeaderBytes));
  }
  Error error;
  // The first call ends behind the request line when the rest is not there yet.
  const size_t taken = parser_->put(asio::buffer(input_), error);
  input_.erase(0, taken);
  if (error && error != beast::http::error::need_more) {
    Refuse(ExplainParserError(error));
    return false;
  }
  if (!parser_->is_header_done()) {
    ReadMore();
    return false;
  }
  BeginExchange();
  return phase_ == Phase::Exchanging && !tunnelIsDue_ && !IsLastResponseMade();
}

// False when there is more to come of the body.
bool BrowserConnection::TakeBody() {
  while (!UploadIsOver()) {
    if (body_->Waiting() >= front_.settings.maxBufferedBytes / 4) return false;  // BodyWasRead goes on
    Error error;
    const size_t taken = input_.empty() ? 0 : parser_->put(asio::buffer(input_), error);
    input_.erase(0, taken);
    if (error && error != beast::http::error::need_more) {
      BodyIsBroken(400, "The body of the request is not valid (" + error.message() + ").");
      return false;
    }
    if (taken > 0) continue;
    if (input_.size() >= front_.settings.maxHeaderBytes) {
      BodyIsBroken(400, "The body of the request is not valid (a line without end).");
      return false;
    }
    ReadMore();
    return false;
  }
  body_->End();
  return true;
}

void BrowserConnection::BeginExchange() {
  phase_ = Phase::Exchanging;
  Progress();
  const HeadRules rules{.secureOrigin = secureOrigin_,
                        .password = secureOrigin_.empty() ? front_.settings.password : std::string(),
                        .viaName = front_.settings.viaName,
                        .tunnelPorts = front_.settings.tunnelPorts};
  auto head = ReadRequestHead(parser_->get().base(), rules);
  if (const auto* const refusal = std::get_if<Refusal>(&head)) return Refuse(*refusal);
  request_ = std::move(std::get<RequestHead>(head));
  if (LeadsTo(request_.target, front_.self))
    return Refuse({508, "The request leads back to this proxy itself."});
  request_.kind == RequestHead::Kind::Load ? BeginLoad() : BeginTunnel();
}

void BrowserConnection::BeginLoad() {
  const bool reads = request_.method == "GET" || request_.method == "HEAD";
  if (request_.hasBody && !(reads && UploadIsOver())) {
    // Whoever reads may be in the middle of something, so that it is acted upon later.
    body_ = std::make_shared<RequestBody>(request_.bodyLength, [this] {
      asio::post(front_.loop.Io(), [this, self = shared_from_this(), body = body_] {
        if (phase_ == Phase::Exchanging && body == body_) BodyWasRead();
      });
    });
    parser_->get().body() = [body = body_](std::string_view bytes) { body->Add(bytes); };
    continueIsDue_ = request_.expectsContinue;
    if (UploadIsOver()) body_->End();
  }
  load_ = front_.handler.Start(
      {.method = request_.method, .url = request_.url, .headers = request_.headers, .body = body_}, *this);
}

void BrowserConnection::BeginTunnel() {
  if (reading_) {  // ahead of the request's turn; the stream is handed over with nothing under way
    tunnelIsDue_ = true;
    Error ignored;
    stream_->Tcp().cancel(ignored);
    return;
  }
  phase_ = Phase::Closed;
  const bool secure = !secureOrigin_.empty();
  if (request_.kind == RequestHead::Kind::Upgrade) {
    const std::string head = request_.method + " " + request_.path +
                             " HTTP/1.1\r\nHost: " + ToText(request_.target, secure ? 443 : 80) + "\r\n" +
                             request_.headers + "Connection: Upgrade\r\nUpgrade: " + request_.upgrade +
                             "\r\n\r\n";
    AddressRule mayReach = front_.handler.AddressesFor(
        {.method = request_.method, .url = request_.url, .headers = request_.headers, .body = nullptr});
    front_.replace(this, std::make_shared<Tunnel>(front_, std::move(stream_),
                                                  TunnelRequest{.target = request_.target,
                                                                .secure = secure,
                                                                .mayReach = std::move(mayReach),
                                                                .toServer = head + input_}));
    return;
  }
  const std::string established = "HTTP/1.1 200 Connection established\r\n\r\n";
  if (front_.interceptor.Intercepts(request_.target.host)) {
    front_.replace(this, std::make_shared<Handshake>(front_, std::move(stream_), request_.target, established,
                                                     std::move(input_)));
  } else {
    front_.replace(this, std::make_shared<Tunnel>(front_, std::move(stream_),
                                                  TunnelRequest{.target = request_.target,
                                                                .toBrowser = established,
                                                                .toServer = std::move(input_)}));
  }
}

void BrowserConnection::BodyWasRead() {
  if (std::exchange(continueIsDue_, false) && sent_ == Sent::Nothing && input_.empty()) {
    Send("HTTP/1.1 100 Continue\r\n\r\n");
  }
  Advance();
}

void BrowserConnection::BodyIsBroken(int status, const std::string& why) {
  if (sent_ == Sent::Nothing) return Refuse({status, why});
  CutResponse();
}

// --- From the handler

void BrowserConnection::OnInformational(const net::HttpResponseHeaders& headers) {
  if (!request_.http10) Send(MakeInformationalHead(headers));
}

void BrowserConnection::OnResponse(const host::LoadInfo& /*info*/, const net::HttpResponseHeaders& headers) {
  response_ =
      MakeResponseHead(headers, request_.method, request_.http10, request_.keepAlive && UploadIsOver());
  bodyLeft_ = response_.length;
  sent_ = Sent::Head;
  Send(response_.text);
}

void BrowserConnection::OnBody(const char* bytes, int32_t count) {
  if (sent_ != Sent::Head || response_.framing == Framing::NoBody || count <= 0) return;
  if (response_.framing == Framing::Length) {
    if (count > bodyLeft_) return CutResponse();  // it is not what was declared
    bodyLeft_ -= count;
  }
  const bool chunked = response_.framing == Framing::Chunked;
  if (chunked) {
    char size[16];
    std::snprintf(size, sizeof size, "%x\r\n", static_cast<unsigned>(count));
    output_ += size;
  }
  output_.append(bytes, static_cast<size_t>(count));
  Send(chunked ? "\r\n" : "");
  if (output_.size() + sending_.size() > front_.settings.maxBufferedBytes &&
      !std::exchange(readingPaused_, true)) {
    front_.handler.SetReading(load_, false);
  }
}

void BrowserConnection::OnDone(const host::LoadInfo& /*info*/, int32_t result,
                               const host::TransferReport& /*report*/) {
  const auto self = shared_from_this();
  load_ = 0;
  if (sent_ == Sent::Nothing && result == host::kClientCertificateNeeded && !secureOrigin_.empty()) {
    return SendToTunnel();
  }
  if (sent_ == Sent::Nothing) {
    const Refusal refusal =
        ExplainResult(result == host::kOk ? host::kEmptyResponse : result, ToText(request_.target, 0));
    front_.Tell(refusal.why);
    return SendErrorPage(refusal, request_.keepAlive && UploadIsOver());
  }
  if (result != host::kOk || bodyLeft_ > 0) return CutResponse();
  sent_ = Sent::All;
  Send(response_.framing == Framing::Chunked ? "0\r\n\r\n" : "");
}

// --- To the browser

// Sent at the end of this turn of the loop, so that small pieces go together.
void BrowserConnection::Send(std::string_view bytes) {
  output_.append(bytes);
  if (std::exchange(flushIsDue_, true)) return;
  asio::post(front_.loop.Io(), [this, self = shared_from_this()] {
    flushIsDue_ = false;
    if (phase_ == Phase::Exchanging) Flush();
  });
}

void BrowserConnection::Flush() {
  if (!sending_.empty()) return;
  if (output_.empty()) {
    if (sent_ == Sent::All || sent_ == Sent::Cut) EndExchange();
    return;
  }
  sending_ = std::exchange(output_, {});
  Progress();
  stream_->Write(asio::buffer(sending_), [this, self = shared_from_this()](const Error& error, size_t) {
    sending_.clear();
    if (phase_ != Phase::Exchanging) return;
    if (error) return End(false);
    Progress();
    if (output_.size() <= front_.settings.maxBufferedBytes / 4 && std::exchange(readingPaused_, false) &&
        load_ != 0) {
      front_.handler.SetReading(load_, true);
    }
    Flush();
  });
}

// The browser has the certificate that the server asks for. So it asks again on a new connection, which is a
// tunnel. The server may have done already what another method than GET asks for, which nobody must repeat
// unasked.
void BrowserConnection::SendToTunnel() {
  const std::string& host = request_.target.host;
  front_.interceptor.Except(host);
  front_.Tell("the server " + host + " asks for a client's certificate, and is tunnelled from now on");
  response_ = {.keepAlive = false};
  sent_ = Sent::All;
  const bool isSafe = request_.method == "GET" || request_.method == "HEAD";
  Send(MakeErrorPage(isSafe ? 307 : 502, "The server asks for a certificate, which only the browser has.",
                     request_.method, false, isSafe ? "Location: " + request_.url + "\r\n" : ""));
}

void BrowserConnection::SendErrorPage(const Refusal& refusal, bool keepAlive) {
  response_ = {.keepAlive = keepAlive};
  sent_ = Sent::All;
  Send(MakeErrorPage(refusal.status, refusal.why, request_.method, keepAlive,
                     refusal.wantsPassword ? "Proxy-Authenticate: Basic realm=\"proxy\"\r\n" : ""));
}

// Of a request that is not understood nothing more is; not even where it ends.
void BrowserConnection::Refuse(const Refusal& refusal) {
  phase_ = Phase::Exchanging;
  if (const host::LoadId load = std::exchange(load_, 0); load != 0) front_.handler.Cancel(load);
  if (body_ != nullptr) std::exchange(body_, nullptr)->Abandon();
  SendErrorPage(refusal, false);
}

// What is sent already stays; the rest never comes, and no end that looks like one.
void BrowserConnection::CutResponse() {
  if (const host::LoadId load = std::exchange(load_, 0); load != 0) front_.handler.Cancel(load);
  sent_ = Sent::Cut;
  Send("");
}

void BrowserConnection::EndExchange() {
  if (sent_ == Sent::Cut) return End(response_.framing == Framing::UntilClose);
  if (!response_.keepAlive || !UploadIsOver()) return Leave();
  if (body_ != nullptr) std::exchange(body_, nullptr)->Abandon();
  parser_.reset();
  request_ = {};
  response_ = {};
  sent_ = Sent::Nothing;
  phase_ = Phase::Waiting;
  Progress();
  Advance();
}

// A connection that is closed while bytes arrive is reset, and the browser may lose the response that it has
// not read yet. So this waits for the browser to close.
void BrowserConnection::Leave() {
  const auto self = shared_from_this();
  phase_ = Phase::Leaving;
  Progress();
  if (body_ != nullptr) std::exchange(body_, nullptr)->Abandon();
  stream_->EndSending([self](const Error&, size_t) {});
  input_.clear();
  ReadMore();
}

}  // namespace live
