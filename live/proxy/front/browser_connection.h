// One connection of a browser that carries requests and responses, one exchange after the other. Loop's
// thread.
#ifndef LIVE_PROXY_FRONT_BROWSER_CONNECTION_H_
#define LIVE_PROXY_FRONT_BROWSER_CONNECTION_H_

#include <array>
#include <boost/beast/core/buffers_range.hpp>
#include <boost/beast/http/parser.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "live/proxy/front/channel.h"
#include "live/proxy/front/request_body.h"
#include "live/proxy/front/request_head.h"
#include "live/proxy/front/response_head.h"
#include "live/proxy/front/stream.h"

namespace live {

// A body that Beast passes on piece by piece without keeping any of it.
struct PassedOnBody {
  using value_type = std::function<void(std::string_view)>;

  class reader {
   public:
    template <bool isRequest, class Fields>
    reader(boost::beast::http::header<isRequest, Fields>& /*head*/, value_type& onBytes)
        : onBytes_(onBytes) {}

    void init(const boost::optional<std::uint64_t>& /*length*/, Error& error) { error = {}; }
    template <class Buffers>
    size_t put(const Buffers& buffers, Error& error) {
      error = {};
      size_t count = 0;
      for (const auto& buffer : boost::beast::buffers_range_ref(buffers)) {
        onBytes_({static_cast<const char*>(buffer.data()), buffer.size()});
        count += buffer.size();
      }
      return count;
    }
    void finish(Error& error) { error = {}; }

   private:
    value_type& onBytes_;
  };
};

class BrowserConnection final : public Channel, private host::LoadClient {
 public:
  // For `secureOrigin` see HeadRules. `read` contains the bytes that the browser has already sent.
  BrowserConnection(FrontContext& front, std::unique_ptr<Stream> stream, std::string secureOrigin,
                    std::string read = {});

  void Start() override;
  void Close() override;
  void LookAtClock(int64_t nowUs) override;

 private:
  using Parser = boost::beast::http::request_parser<PassedOnBody>;

  // What the connection is about.
  enum class Phase {
    Waiting,     // for a request
    Exchanging,  // a request has arrived, and its response is not completely sent
    Leaving,     // everything is sent; what the browser still sends is discarded
    Closed,      // or handed over to a tunnel
  };
  // How the response stands.
  enum class Sent { Nothing, Head, All, Cut };

  // --- From the browser
  void ReadMore();
  void Advance();
  bool TakeHead();
  bool TakeBody();
  void BeginExchange();
  void BeginLoad();
  void BeginTunnel();
  void BodyWasRead();
  void BodyIsBroken(int status, const std::string& why);

  // --- From the handler
  void OnInformational(const net::HttpResponseHeaders& headers) override;
  void OnResponse(const host::LoadInfo& info, const net::HttpResponseHeaders& headers) override;
  void OnBody(const char* bytes, int32_t count) override;
  void OnDone(const host::LoadInfo& info, int32_t result, const host::TransferReport& report) override;

  // --- To the browser
  void Send(std::string_view bytes);
  void Flush();
  void Refuse(const Refusal& refusal);
  void SendToTunnel();
  void SendErrorPage(const Refusal& refusal, bool keepAlive);
  void CutResponse();
  void EndExchange();
  void Leave();
  void End(bool reset);

  bool UploadIsOver() const { return parser_->is_done(); }
  // From now on everything that the browser sends is ignored.
  bool IsLastResponseMade() const {
    return phase_ == Phase::Exchanging &&
           (sent_ == Sent::Cut || (sent_ == Sent::All && !response_.keepAlive));
  }
  void Progress() { lastUs_ = front_.NowUs(); }

  FrontContext& front_;  // not used when closed
  std::unique_ptr<Stream> stream_;
  const std::string secureOrigin_;
  Phase phase_ = Phase::Waiting;
  int64_t lastUs_;  // the browser did something, or the phase began

  std::array<char, 4 * 1024> chunk_;  // idle connections have it as well
  bool reading_ = false;
  bool tunnelIsDue_ = false;  // as soon as nothing is being read
  std::string input_;         // read and not yet parsed

  // Of the exchange.
  std::optional<Parser> parser_;
  RequestHead request_;
  std::shared_ptr<RequestBody> body_;
  bool continueIsDue_ = false;
  host::LoadId load_ = 0;  // 0: none, or over
  Sent sent_ = Sent::Nothing;
  ResponseHead response_;
  int64_t bodyLeft_ = 0;  // of a response with a length
  bool readingPaused_ = false;

  std::string output_;   // to be sent next
  std::string sending_;  // being sent
  bool flushIsDue_ = false;
  size_t thrownAway_ = 0;  // bytes, while leaving
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_BROWSER_CONNECTION_H_
