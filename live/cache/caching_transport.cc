#include "live/cache/caching_transport.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/http/cache_control.h"
#include "host/http/header_block.h"

namespace live {
namespace {

// A stored body is handed out in pieces, so that a client can pause in between.
constexpr size_t kPiece = size_t{64} * 1024;

// More than one person may browse through one cache. What came to a request with cookies or with
// Authorization is theirs alone, unless the server says that it is for everybody.
std::string PartitionOf(const std::string& requestHeaders) {
  std::string partition;
  for (const char* const name : {"Cookie", "Authorization"}) {
    if (const auto value = http::CombinedHeader(requestHeaders, name))
      partition += name + (": " + *value) + "\n";
  }
  return partition;
}

const std::string& NotAvailableBlock() {
  static const std::string block("HTTP/1.1 504 Gateway Timeout\0Content-Length: 0\0\0", 48);
  return block;
}

}  // namespace

// One transfer, from the cache or over the network. Every function that calls out holds a reference to its
// own object; `client_` is null once the transfer is done or cancelled.
class CachingTransport::Exchange final : public host::TransferClient,
                                         public std::enable_shared_from_this<Exchange> {
 public:
  Exchange(CachingTransport& owner, host::TransferId id, const host::TransferRequest& request,
           host::TransferClient& client)
      : owner_(&owner),
        client_(&client),
        id_(id),
        request_(request),
        cacheRequest_{.method = request.method, .url = request.url, .headers = request.headers} {
    report_.started = owner.executor_.Now();
  }

  void Start() {
    CacheLookup found = owner_->Lookup(cacheRequest_);
    switch (found.verdict) {
      case CacheVerdict::Fresh:
        return ServeLater(std::move(found.response));
      case CacheVerdict::NotAvailable:
        return ServeLater({NotAvailableBlock(), std::make_shared<const std::string>()});
      case CacheVerdict::Stale:
        asked_ = std::move(found.stored);
        return Send(found.validators);
      case CacheVerdict::Miss:
        return Send("");
    }
  }

  void SetUrgency(host::Urgency urgency) {
    request_.urgency = urgency;
    if (transfer_ != 0) owner_->network_.SetUrgency(transfer_, urgency);
  }

  void SetReading(bool reading) {
    if (std::exchange(reading_, reading) == reading) return;
    if (transfer_ != 0) owner_->network_.SetReading(transfer_, reading);
    if (reading && served_) PostServing();
  }

  host::TransferReport Cancel() {
    client_ = nullptr;
    writer_.reset();
    if (const host::TransferId transfer = std::exchange(transfer_, 0); transfer != 0) {
      report_ = owner_->network_.Cancel(transfer);
    }
    report_.ended = owner_->executor_.Now();
    return report_;
  }

  void OnInformational(const net::HttpResponseHeaders& headers) override {
    const auto self = shared_from_this();
    client_->OnInformational(headers);
  }

  void OnResponse(const net::HttpResponseHeaders& headers) override {
    const auto self = shared_from_this();
    times_.receivedUs = owner_->wallClock_();
    const std::string& block = headers.raw_headers();
    if (asked_ != nullptr && headers.response_code() == 304) {
      auto renewed = owner_->cache_.Renew(cacheRequest_, std::exchange(asked_, nullptr), block, times_);
      owner_->network_.Cancel(std::exchange(transfer_, 0));  // a 304 has no body
      if (renewed) return ServeLater(std::move(*renewed));
      return Send("");
    }
    CacheRequest storing = cacheRequest_;
    if (http::ReadResponseCacheControl(block).isPublic) {
      storing.partition.clear();
    } else {
      storing.partition = PartitionOf(request_.headers);
    }
    writer_ = owner_->cache_.OnResponse(storing, block, times_);
    client_->OnResponse(headers);
  }

  void OnBody(const char* bytes, int32_t count) override {
    const auto self = shared_from_this();
    if (writer_ != nullptr && !writer_->Append({bytes, static_cast<size_t>(count)})) writer_.reset();
    client_->OnBody(bytes, count);
  }

  void OnDone(int32_t result, const host::TransferReport& report) override {
    const auto self = shared_from_this();
    transfer_ = 0;
    if (writer_ != nullptr && result == host::kOk) writer_->Commit();
    writer_.reset();
    Finish(result, report);
  }

  void Serve() {
    const auto self = shared_from_this();
    if (client_ != nullptr && !std::exchange(responded_, true)) {
      report_.connect = report_.sent = report_.firstByte = owner_->executor_.Now();
      client_->OnResponse(net::HttpResponseHeaders(served_->block));
    }
    while (client_ != nullptr && reading_ && position_ < served_->body->size()) {
      const size_t length = std::min(kPiece, served_->body->size() - position_);
      const char* const piece = served_->body->data() + std::exchange(position_, position_ + length);
      client_->OnBody(piece, static_cast<int32_t>(length));
    }
    if (client_ == nullptr || position_ < served_->body->size()) return;
    report_.ended = owner_->executor_.Now();
    Finish(host::kOk, report_);
  }

 private:
  void Send(const std::string& validators) {
    host::TransferRequest request = request_;
    // Before what follows the last line, if the text ends with an empty one.
    std::string lines = request.headers;
    while (lines.ends_with("\r\n\r\n")) lines.resize(lines.size() - 2);
    if (lines == "\r\n") lines.clear();
    request.headers = lines + validators;
    times_.requestedUs = owner_->wallClock_();
    transfer_ = owner_->network_.Start(request, *this);
    if (!reading_) owner_->network_.SetReading(transfer_, false);
  }

  void ServeLater(ServedResponse response) {
    served_ = std::move(response);
    PostServing();
  }

  void PostServing() {
    owner_->tasks_.Post([owner = owner_, id = id_] {
      const auto found = owner->exchanges_.find(id);
      if (found != owner->exchanges_.end()) found->second->Serve();
    });
  }

  void Finish(int32_t result, const host::TransferReport& report) {
    host::TransferClient* const client = std::exchange(client_, nullptr);
    owner_->exchanges_.erase(id_);
    client->OnDone(result, report);
  }

  CachingTransport* const owner_;
  host::TransferClient* client_;
  const host::TransferId id_;
  host::TransferRequest request_;
  CacheRequest cacheRequest_;
  host::TransferId transfer_ = 0;  // over the network; 0 for none
  bool reading_ = true;
  ExchangeTimes times_;
  StoredPtr asked_;  // whose validators were sent
  std::unique_ptr<CacheWriter> writer_;
  std::optional<ServedResponse> served_;  // from the cache
  bool responded_ = false;
  size_t position_ = 0;  // in the body that is served
  host::TransferReport report_;
};

CachingTransport::CachingTransport(host::Executor& executor, host::Transport& network, HttpCache& cache,
                                   WallClock wallClock)
    : executor_(executor),
      network_(network),
      cache_(cache),
      wallClock_(std::move(wallClock)),
      tasks_(executor) {}

CachingTransport::~CachingTransport() {
  for (const auto& [id, exchange] : std::exchange(exchanges_, {})) exchange->Cancel();
}

// What is for everybody first, then what came to the same cookies. Leaves the partition of what was found in
// the request.
CacheLookup CachingTransport::Lookup(CacheRequest& request) {
  request.partition.clear();
  CacheLookup found = cache_.Lookup(request, wallClock_());
  const std::string own = PartitionOf(request.headers);
  if (found.verdict == CacheVerdict::Fresh || own.empty()) return found;
  request.partition = own;
  CacheLookup foundOwn = cache_.Lookup(request, wallClock_());
  if (foundOwn.verdict == CacheVerdict::Fresh || foundOwn.verdict == CacheVerdict::Stale) return foundOwn;
  if (found.verdict == CacheVerdict::Stale) request.partition.clear();
  return found;
}

bool CachingTransport::IsFresh(const std::string& url, const std::string& headers) {
  CacheRequest request = {.url = url, .headers = headers};
  return Lookup(request).verdict == CacheVerdict::Fresh;
}

host::TransferId CachingTransport::Start(const host::TransferRequest& request, host::TransferClient& client) {
  const host::TransferId id = ++lastId_;
  const auto exchange = std::make_shared<Exchange>(*this, id, request, client);
  exchanges_[id] = exchange;
  exchange->Start();
  return id;
}

void CachingTransport::SetUrgency(host::TransferId id, host::Urgency urgency) {
  const auto found = exchanges_.find(id);
  if (found != exchanges_.end()) found->second->SetUrgency(urgency);
}

void CachingTransport::SetReading(host::TransferId id, bool reading) {
  const auto found = exchanges_.find(id);
  if (found != exchanges_.end()) found->second->SetReading(reading);
}

host::TransferReport CachingTransport::Cancel(host::TransferId id) {
  const auto found = exchanges_.find(id);
  if (found == exchanges_.end()) return {};
  const auto exchange = found->second;
  exchanges_.erase(found);
  return exchange->Cancel();
}

}  // namespace live
