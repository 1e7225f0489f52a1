#include "host/network_stack.h"

#include <algorithm>
#include <utility>

#include "host/http/conditions.h"
#include "host/http/header_block.h"
#include "host/reuse_rules.h"
#include "url/gurl.h"

namespace host {
namespace {

// A served body is passed on in pieces, so that a client can pause.
constexpr size_t kPiece = size_t{64} * 1024;

RequestFacts FactsOf(const LoadRequest& request) {
  return {.method = request.method,
          .headers = request.headers,
          .hasBody = request.body != nullptr,
          .withCredentials = request.withCredentials};
}

// Why the preload, as far as it is known yet, does not answer this request, or None if it does. The header
// lines of its request and the block of its response are empty until they are known.
NotServed WhyNotFor(const LoadRequest& request, bool withCredentials, const std::string& sentHeaders,
                    const std::string& responseBlock) {
  const RequestFacts facts = FactsOf(request);
  const RequestFacts sent = {.method = "GET", .headers = sentHeaders, .withCredentials = withCredentials};
  if (const NotServed why = WhyNotReusable(facts); why != NotServed::None) return why;
  if (sentHeaders.empty()) return NotServed::None;
  if (responseBlock.empty()) return WhyNotSameSender(facts, sent);
  return WhyNotAnswer(facts, sent, responseBlock);
}

}  // namespace

// One load, from any source. Every function that calls out holds a reference to its own object, and checks
// afterwards whether the load still exists: `client_` is null when it is done or cancelled, or when the stack
// was destroyed.
class NetworkStack::ActiveLoad final : public TransferClient,
                                       public FetchJoiner,
                                       public std::enable_shared_from_this<ActiveLoad> {
 public:
  ActiveLoad(NetworkStack& stack, LoadId id, const LoadRequest& request, LoadClient& client)
      : stack_(&stack), client_(&client), request_(request), info_{.id = id} {}

  const LoadInfo& Info() const { return info_; }

  void Start() {
    CorvaneRuntime& corvane = stack_->corvane_;
    if (request_.method != "GET" || !corvane.ServesPreloads()) {
      return Send(request_.method != "GET" ? NotServed::NotGet : NotServed::SwitchedOff);
    }
    const PreloadRecord* const record = corvane.FindRecord(request_.tab, request_.url);
    const bool isHeld = record != nullptr && record->stage == PreloadStage::Held && !record->used;
    const bool isRunning = record != nullptr && record->stage == PreloadStage::Launched;
    if (!isHeld && !(isRunning && corvane.Settings().joinRunning)) return Send();
    const NotServed why =
        WhyNotFor(request_, record->withCredentials, record->sentHeaders, record->responseBlock);
    if (why != NotServed::None) return Send(why);
    if (isRunning) {
      joinedOrder_ = record->orderId;
      joinedWithCredentials_ = record->withCredentials;
      info_.source = LoadSource::Joined;
      info_.why = NotServed::StillRunning;
      join_ = corvane.Join(*record, *this);
      return;
    }
    if (!corvane.Take(*record, block_, body_)) return Send();
    info_.source = LoadSource::Served;
    if (http::IsConditional(request_.headers) && http::IsNotModified(request_.headers, block_)) {
      block_ = http::NotModifiedBlock(block_);
      body_.clear();
    }
    PostServing();
  }

  // Ends it for everybody except the client.
  void Detach() {
    client_ = nullptr;
    if (stack_ == nullptr) return;
    if (const TransferId transfer = std::exchange(transfer_, 0); transfer != 0) {
      stack_->transport_.Cancel(transfer);
    }
    LeaveJoin();
    if (const uint32_t id = std::exchange(transactionId_, 0); id != 0) {
      stack_->corvane_.TransactionDone(request_.url, id);
    }
  }
  void StackIsGone() {
    Detach();
    stack_ = nullptr;
  }

  void SetReading(bool reading) {
    if (std::exchange(reading_, reading) == reading) return;
    if (transfer_ != 0) stack_->transport_.SetReading(transfer_, reading);
    if (join_.joiner != 0) stack_->corvane_.Fetches().SetReading(join_, reading);
    if (info_.source == LoadSource::Served && reading) PostServing();
  }

  // --- TransferClient: a transaction of its own

  void OnInformational(const net::HttpResponseHeaders& headers) override {
    const auto self = shared_from_this();
    client_->OnInformational(headers);
  }

  void OnResponse(const net::HttpResponseHeaders& headers) override {
    const auto self = shared_from_this();
    CorvaneRuntime& corvane = stack_->corvane_;
    corvane.ResponseSeen(request_.tab, request_.url, headers);
    const int status = headers.response_code();
    if (IsUnsafe(request_.method) && status >= 200 && status < 400) InvalidateBy(headers);
    client_->OnResponse(info_, headers);
  }

  void OnBody(const char* bytes, int32_t count) override {
    const auto self = shared_from_this();
    client_->OnBody(bytes, count);
  }

  void OnDone(int32_t result, const TransferReport& report) override {
    const auto self = shared_from_this();
    transfer_ = 0;
    stack_->corvane_.TransactionDone(request_.url, std::exchange(transactionId_, 0));
    Finish(result, report);
  }

  // --- FetchJoiner: a preload that is running

  void OnJoinResponse(const std::string& sentHeaders, const net::HttpResponseHeaders& headers) override {
    const auto self = shared_from_this();
    const NotServed why = WhyNotFor(request_, joinedWithCredentials_, sentHeaders, headers.raw_headers());
    if (why != NotServed::None) {
      LeaveJoin();
      return Send(why);
    }
    heard_ = true;
    if (http::IsConditional(request_.headers) && headers.response_code() == 200 &&
        http::IsNotModified(request_.headers, headers.raw_headers())) {
      return AnswerNotModified(headers);
    }
    client_->OnResponse(info_, headers);
  }

  void OnJoinBody(const char* bytes, int32_t count) override {
    const auto self = shared_from_this();
    client_->OnBody(bytes, count);
  }

  void OnJoinStalled() override {
    const auto self = shared_from_this();
    join_ = {};
    Send(NotServed::Stalled);
  }

  void OnJoinDone(int32_t result) override {
    const auto self = shared_from_this();
    join_ = {};
    if (result != kOk && !heard_) return Send(NotServed::Failed);  // the request must go to the network
    if (result == kOk) stack_->corvane_.GotByJoining(request_.tab, request_.url, joinedOrder_);
    Finish(result, {});
  }

  // --- A response that was taken out of the plugin

  void Serve() {
    const auto self = shared_from_this();
    if (client_ != nullptr && !std::exchange(heard_, true)) {
      client_->OnResponse(info_, net::HttpResponseHeaders(block_));
    }
    while (client_ != nullptr && reading_ && served_ < body_.size()) {
      const size_t length = std::min(kPiece, body_.size() - served_);
      const char* const piece = body_.data() + std::exchange(served_, served_ + length);
      client_->OnBody(piece, static_cast<int32_t>(length));
    }
    if (client_ != nullptr && served_ == body_.size()) Finish(kOk, {});
  }

 private:
  // Without a reason, the reason is why there is no preload.
  void Send(NotServed why = NotServed::None) {
    CorvaneRuntime& corvane = stack_->corvane_;
    transactionId_ = corvane.TransactionStarts(request_.url);
    info_.source = LoadSource::Network;
    info_.why = why != NotServed::None ? why : WhyNotAtHand(corvane.FindRecord(request_.tab, request_.url));
    transfer_ = stack_->transport_.Start({.url = request_.url,
                                          .method = request_.method,
                                          .headers = request_.headers,
                                          .context = request_.context,
                                          .body = request_.body,
                                          .requestId = request_.requestId},
                                         *this);
    if (!reading_) stack_->transport_.SetReading(transfer_, false);
  }

  void PostServing() {
    stack_->tasks_.Post([stack = stack_, id = info_.id] {
      const auto found = stack->loads_.find(id);
      if (found != stack->loads_.end()) found->second->Serve();
    });
  }

  void LeaveJoin() {
    if (join_.joiner != 0) stack_->corvane_.Fetches().Leave(std::exchange(join_, {}));
  }

  // The client's stored copy is still valid. The preload continues for the next request.
  void AnswerNotModified(const net::HttpResponseHeaders& headers) {
    LeaveJoin();
    client_->OnResponse(info_, net::HttpResponseHeaders(http::NotModifiedBlock(headers.raw_headers())));
    if (client_ != nullptr) Finish(kOk, {});
  }

  // A change of a resource makes its preload out of date, and those of the URLs that the response names as
  // changed.
  void InvalidateBy(const net::HttpResponseHeaders& headers) {
    const GURL url(request_.url);
    stack_->corvane_.Invalidate(request_.url);
    for (const char* const name : {"Location", "Content-Location"}) {
      const auto target = http::FindHeader(headers.raw_headers(), name);
      if (target) stack_->corvane_.Invalidate(url.Resolve(std::string(*target)).spec());
    }
  }

  void Finish(int32_t result, const TransferReport& report) {
    LoadClient* const client = std::exchange(client_, nullptr);
    const LoadInfo info = info_;
    stack_->loads_.erase(info.id);
    client->OnDone(info, result, report);
  }

  NetworkStack* stack_;  // null after it was destroyed
  LoadClient* client_;
  const LoadRequest request_;
  LoadInfo info_;
  uint32_t transactionId_ = 0;  // 0 while none is open
  TransferId transfer_ = 0;
  JoinId join_;
  uint64_t joinedOrder_ = 0;
  bool joinedWithCredentials_ = true;
  bool heard_ = false;  // the client has received a preloaded response
  bool reading_ = true;
  std::string block_, body_;  // taken out of the plugin
  size_t served_ = 0;         // bytes of the body
};

NetworkStack::NetworkStack(CorvaneRuntime& corvane, Executor& executor, Transport& transport)
    : corvane_(corvane), transport_(transport), tasks_(executor) {}

NetworkStack::~NetworkStack() {
  for (const auto& [id, load] : std::exchange(loads_, {})) load->StackIsGone();
}

LoadInfo NetworkStack::Start(const LoadRequest& request, LoadClient& client) {
  const LoadId id = ++lastId_;
  const auto load = std::make_shared<ActiveLoad>(*this, id, request, client);
  loads_[id] = load;
  load->Start();
  return load->Info();
}

void NetworkStack::Cancel(LoadId id) {
  const auto found = loads_.find(id);
  if (found == loads_.end()) return;
  const auto load = found->second;
  loads_.erase(found);
  load->Detach();
}

void NetworkStack::SetReading(LoadId id, bool reading) {
  const auto found = loads_.find(id);
  if (found != loads_.end()) found->second->SetReading(reading);
}

}  // namespace host
