#include "host/fetcher.h"

#include <optional>
#include <utility>

#include "net/http/http_request_info.h"

namespace host {

// One fetch. It ends for the plugin with FetchDone and for itself with the transfer, which may be later: when
// the plugin refuses a response that somebody waits for, the transfer goes on without the plugin.
class Fetcher::Fetch final : public TransferClient {
 public:
  Fetch(Fetcher& fetcher, uint64_t id, uint32_t cookie) : fetcher_(fetcher), id_(id), cookie_(cookie) {}

  void Begin() {
    if (!pluginHears_) return Ended(kAborted);
    const std::unique_ptr<net::HttpRequestInfo> info(fetcher_.plugin_.FetchGetRequestInfo(Cookie()));
    if (info == nullptr) return Ended(kAborted);  // it left the cache meanwhile
    transfer_ = fetcher_.transport_.Start({.url = info->url.spec(),
                                           .method = info->method,
                                           .headers = info->extra_headers.ToString(),
                                           .urgency = joiners_.empty() ? Urgency::Preload : Urgency::Browser},
                                          *this);
    fetcher_.observer_.OnFetchTaken(cookie_, transfer_);
  }

  void Join(FetchJoiner joiner) {
    joiners_.push_back({std::move(joiner)});
    fetcher_.executor_.PostDelayed(0, [&fetcher = fetcher_, id = id_] { fetcher.TellJoiners(id); });
    if (transfer_ != 0) fetcher_.transport_.SetUrgency(transfer_, Urgency::Browser);
  }

  void Abandon() {
    // Its end, but nobody else hears of it: without it the plugin would never have the slot back.
    if (std::exchange(pluginHears_, false)) fetcher_.plugin_.FetchDone(Cookie(), kAborted);
    if (joiners_.empty()) Cancel();
  }

  void OnResponse(const net::HttpResponseHeaders& headers) override {
    headers_ = headers;
    bool accepted = false;
    if (pluginHears_) {
      const CorvaneFetchResponse response = {&headers};
      accepted = fetcher_.plugin_.FetchStartComplete(Cookie(), &response) != 0;
      fetcher_.observer_.OnFetchResponse(cookie_, headers, accepted);
    }
    TellJoiners();
    if (!accepted) Refused();
  }

  void OnBody(const char* bytes, int32_t count) override {
    if (pluginHears_ && fetcher_.plugin_.FetchReadComplete(Cookie(), bytes, count) == 0) Refused();
  }

  void OnDone(int32_t result) override { Ended(result); }

  // Those who have not heard of the response yet, once it is there.
  void TellJoiners() {
    if (!headers_) return;
    for (Waiting& waiting : joiners_) {
      if (!std::exchange(waiting.heard, true)) waiting.joiner.onResponse(*headers_);
    }
  }

  void Cancel() {
    if (StopTransfer())
      fetcher_.executor_.PostDelayed(0, [&fetcher = fetcher_, id = id_] { fetcher.Forget(id); });
  }

  // False when none was under way.
  bool StopTransfer() {
    if (transfer_ == 0) return false;
    fetcher_.transport_.Cancel(std::exchange(transfer_, 0));
    return true;
  }

 private:
  struct Waiting {
    FetchJoiner joiner;
    bool heard = false;  // of the response
  };

  void* Cookie() const { return reinterpret_cast<void*>(static_cast<uintptr_t>(cookie_)); }

  void TellPlugin(int32_t result) {
    if (!std::exchange(pluginHears_, false)) return;
    fetcher_.plugin_.FetchDone(Cookie(), result);
    fetcher_.running_.erase(cookie_);
    fetcher_.observer_.OnFetchEnded(cookie_, result);
  }

  void Refused() {
    TellPlugin(kAborted);
    if (joiners_.empty()) Cancel();
  }

  void Ended(int32_t result) {
    transfer_ = 0;
    const bool forPlugin = pluginHears_;
    TellPlugin(result);
    TellJoiners();
    for (const Waiting& waiting : joiners_) waiting.joiner.onDone(result, forPlugin);
    // Later, because the transport is still inside its call of this object.
    fetcher_.executor_.PostDelayed(0, [&fetcher = fetcher_, id = id_] { fetcher.Forget(id); });
  }

  Fetcher& fetcher_;
  const uint64_t id_;
  const uint32_t cookie_;
  TransferId transfer_ = 0;  // 0 while none is under way
  bool pluginHears_ = true;  // FetchDone is still due
  std::optional<net::HttpResponseHeaders> headers_;
  std::vector<Waiting> joiners_;
};

Fetcher::Fetcher(const PluginFunctions& plugin, Executor& executor, Transport& transport,
                 FetchObserver& observer)
    : plugin_(plugin), executor_(executor), transport_(transport), observer_(observer) {}

Fetcher::~Fetcher() {
  for (const auto& [id, fetch] : fetches_) fetch->StopTransfer();
}

int Fetcher::Start(void* cookie) {
  const auto number = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(cookie));
  if (running_.contains(number)) return 0;
  const uint64_t id = ++lastId_;
  running_[number] = (fetches_[id] = std::make_unique<Fetch>(*this, id, number)).get();
  // CorvaneFetch is called with the plugin's lock held: the callbacks come from a task.
  executor_.PostDelayed(0, [this, id] { Begin(id); });
  return 1;
}

bool Fetcher::IsRunning(uint32_t cookie) const {
  return running_.contains(cookie);
}

void Fetcher::Join(uint32_t cookie, FetchJoiner joiner) {
  running_.at(cookie)->Join(std::move(joiner));
}

void Fetcher::AbandonAll() {
  for (const auto& [cookie, fetch] : std::exchange(running_, {})) fetch->Abandon();
}

void Fetcher::Begin(uint64_t id) {
  fetches_.at(id)->Begin();
}

void Fetcher::TellJoiners(uint64_t id) {
  if (const auto found = fetches_.find(id); found != fetches_.end()) found->second->TellJoiners();
}

void Fetcher::Forget(uint64_t id) {
  fetches_.erase(id);
}

}  // namespace host
