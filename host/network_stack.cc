#include "host/network_stack.h"

#include <utility>

namespace host {

// One transaction of the browser's own.
class NetworkStack::Transaction final : public TransferClient {
 public:
  Transaction(NetworkStack& stack, std::string url, uint32_t id, LoadClient& client)
      : stack_(stack), url_(std::move(url)), id_(id), client_(client) {}

  void OnResponse(const net::HttpResponseHeaders& headers) override {
    stack_.corvane_.ResponseSeen(url_, headers);
    client_.OnResponse(headers);
  }

  void OnBody(const char* /*bytes*/, int32_t /*count*/) override {}

  void OnDone(int32_t result) override {
    stack_.corvane_.TransactionDone(url_, id_);
    client_.OnDone(result);
    stack_.executor_.PostDelayed(0, [&stack = stack_, id = id_] { stack.transactions_.erase(id); });
  }

 private:
  NetworkStack& stack_;
  const std::string url_;
  const uint32_t id_;
  LoadClient& client_;
};

NetworkStack::NetworkStack(Corvane& corvane, Executor& executor, Transport& transport)
    : corvane_(corvane), executor_(executor), transport_(transport) {}

NetworkStack::~NetworkStack() = default;

Load NetworkStack::Start(const LoadRequest& request, LoadClient& client) {
  if (request.method == "GET" && corvane_.Plugin().IsPreloaderEnabled() != 0 &&
      corvane_.MayAsk(request.url)) {
    std::string headers;
    std::string body;
    if (Take(request.url, headers, body)) {
      if (PreloadRecord* const record = corvane_.FindRecord(request.url)) record->used = true;
      executor_.PostDelayed(0, [&client, headers = std::move(headers), body = std::move(body)] {
        client.OnResponse(net::HttpResponseHeaders(headers));
        client.OnPreloadedBody(headers, body);
        client.OnDone(kOk);
      });
      return {LoadSource::Served, 0};
    }
    if (corvane_.Settings().joinRunning && corvane_.IsRunning(request.url)) {
      Join(request, client);
      return {LoadSource::Joined, 0};
    }
  }
  return {LoadSource::Network, Send(request, client)};
}

bool NetworkStack::Take(const std::string& url, std::string& headers, std::string& body) {
  const char* lent = nullptr;
  int32_t length = 0;
  if (corvane_.Plugin().IsPreloaded(url.c_str(), &headers, &lent, &length) == 0) return false;
  body.assign(lent, static_cast<size_t>(length));
  corvane_.Plugin().ReleasePreloaded(url.c_str());
  return true;
}

TransferId NetworkStack::Send(const LoadRequest& request, LoadClient& client) {
  const uint32_t id = corvane_.TransactionStarts(request.url);
  const auto& transaction = transactions_[id] = std::make_unique<Transaction>(*this, request.url, id, client);
  return transport_.Start({.url = request.url,
                           .method = request.method,
                           .headers = request.headers,
                           .urgency = Urgency::Browser,
                           .tag = request.tag},
                          *transaction);
}

void NetworkStack::Join(const LoadRequest& request, LoadClient& client) {
  if (PreloadRecord* const record = corvane_.FindRecord(request.url)) record->joined = true;
  const auto heard = std::make_shared<bool>(false);
  const auto onResponse = [heard, &client](const net::HttpResponseHeaders& headers) {
    *heard = true;
    client.OnResponse(headers);
  };
  const auto onDone = [this, heard, request, &client](int32_t result, bool forPlugin) {
    if (result != kOk && !*heard) {  // the preload came to nothing: the request is on its own
      Send(request, client);
      return;
    }
    std::string headers;
    std::string body;
    if (result == kOk && forPlugin && Take(request.url, headers, body)) {
      if (PreloadRecord* const record = corvane_.FindRecord(request.url)) record->used = true;
      client.OnPreloadedBody(headers, body);
    }
    // What the plugin did not hold reached the joiner through the fetcher.
    client.OnDone(result);
  };
  corvane_.Join(request.url, {onResponse, onDone});
}

}  // namespace host
