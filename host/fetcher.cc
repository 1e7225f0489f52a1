#include "host/fetcher.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "net/http/http_request_info.h"

namespace host {
namespace {

// How many bytes a joiner may lag behind a transfer that only joiners read, before the transfer is paused.
constexpr size_t kMostLagging = size_t{256} * 1024;

}  // namespace

// One fetch. For the plugin it ends with FetchDone. It may continue after that: when the plugin refuses a
// response for which somebody waits, the transfer continues without the plugin.
//
// Every function that calls out holds a reference to its own object, and checks afterwards what the call may
// have changed, because Detach may have been called.
class Fetcher::Fetch final : public TransferClient, public std::enable_shared_from_this<Fetch> {
 public:
  Fetch(Fetcher& fetcher, uint64_t id, uint32_t cookie, net::URLRequestContext* context)
      : fetcher_(&fetcher), id_(id), cookie_(cookie), context_(context), timer_(fetcher.executor_) {}

  void Begin() {
    const auto self = shared_from_this();
    if (!pluginHears_) return End(kAborted);
    const std::unique_ptr<net::HttpRequestInfo> info(fetcher_->plugin_.FetchGetRequestInfo(Cookie()));
    if (info == nullptr) return End(kAborted);  // the plugin has dropped it meanwhile
    sentHeaders_ = fetcher_->observer_.OnFetchBegins(cookie_, context_, info->extra_headers.ToString());
    MadeProgress();
    transfer_ = fetcher_->transport_.Start({.url = info->url.spec(),
                                            .method = info->method,
                                            .headers = sentHeaders_,
                                            .urgency = joiners_.empty() ? Urgency::Preload : Urgency::Browser,
                                            .context = context_,
                                            .loadFlags = info->load_flags,
                                            .priority = info->priority,
                                            .motivation = info->motivation},
                                           *this);
    WatchProgress();
  }

  uint64_t Join(FetchJoiner& joiner) {
    const uint64_t number = ++lastJoiner_;
    joiners_[number] = {.joiner = &joiner, .nextChunk = firstChunk_};
    PostDelivery(number);
    if (transfer_ != 0) fetcher_->transport_.SetUrgency(transfer_, Urgency::Browser);
    WatchProgress();
    return number;
  }

  void Leave(uint64_t number) {
    const auto self = shared_from_this();
    if (joiners_.erase(number) == 0) return;
    if (joiners_.empty() && pluginHears_ && transfer_ != 0) {
      fetcher_->transport_.SetUrgency(transfer_, Urgency::Preload);
    }
    Tidy();
  }

  void SetReading(uint64_t number, bool reading) {
    const auto found = joiners_.find(number);
    if (found == joiners_.end() || std::exchange(found->second.reading, reading) == reading) return;
    if (reading) PostDelivery(number);
  }

  TransferReport Abandon() {
    const auto self = shared_from_this();
    if (std::exchange(pluginHears_, false)) {
      fetcher_->running_.erase(cookie_);
      // Without this call the plugin would never free the slot.
      fetcher_->plugin_.FetchDone(Cookie(), kAborted);
    }
    if (joiners_.empty()) StopTransfer();
    Tidy();
    return report_;
  }

  // The fetcher is destroyed.
  void Detach() {
    StopTransfer();
    timer_.Stop();
    joiners_.clear();
    fetcher_ = nullptr;
  }

  void OnResponse(const net::HttpResponseHeaders& headers) override {
    const auto self = shared_from_this();
    MadeProgress();
    response_ = headers;
    declared_ = headers.GetContentLength();
    bool accepted = false;
    if (pluginHears_) {
      const CorvaneFetchResponse response = {&headers};
      accepted = fetcher_->plugin_.FetchStartComplete(Cookie(), &response) != 0;
      fetcher_->observer_.OnFetchResponse(cookie_, headers, accepted);
    }
    if (!accepted) TellPlugin(kAborted);
    DeliverToAll();
  }

  void OnBody(const char* bytes, int32_t count) override {
    const auto self = shared_from_this();
    MadeProgress();
    const int64_t wanted = declared_ < 0 ? count : std::min<int64_t>(count, declared_ - received_);
    if (wanted > 0) {
      received_ += wanted;
      const auto length = static_cast<int32_t>(wanted);
      const bool stored = !pluginHears_ || fetcher_->plugin_.FetchReadComplete(Cookie(), bytes, length) != 0;
      if (pluginHears_ || !joiners_.empty()) {
        chunks_.push_back(std::make_shared<const std::string>(bytes, static_cast<size_t>(length)));
      }
      if (!stored) TellPlugin(kAborted);
      DeliverToAll();
    }
    if (wanted < count && fetcher_ != nullptr && !result_) {
      StopTransfer();
      End(kContentLengthMismatch);
    }
  }

  void OnDone(int32_t result, const TransferReport& report) override {
    const auto self = shared_from_this();
    transfer_ = 0;
    report_ = report;
    if (result == kOk && !response_) result = kEmptyResponse;
    if (result == kOk && declared_ >= 0 && received_ != declared_) result = kContentLengthMismatch;
    End(result);
  }

  void Deliver(uint64_t number) {
    const auto self = shared_from_this();
    Joiner* waiting = FindJoiner(number);
    if (waiting != nullptr && response_ && !std::exchange(waiting->heard, true)) {
      waiting->joiner->OnJoinResponse(sentHeaders_, *response_);
      waiting = FindJoiner(number);
    }
    while (waiting != nullptr && waiting->reading && waiting->nextChunk < EndOfChunks()) {
      const auto chunk = chunks_[waiting->nextChunk++ - firstChunk_];
      waiting->joiner->OnJoinBody(chunk->data(), static_cast<int32_t>(chunk->size()));
      waiting = FindJoiner(number);
    }
    if (waiting != nullptr && result_ && waiting->nextChunk == EndOfChunks()) {
      FetchJoiner* const joiner = waiting->joiner;
      joiners_.erase(number);
      joiner->OnJoinDone(*result_);
    }
    Tidy();
  }

 private:
  struct Joiner {
    FetchJoiner* joiner = nullptr;
    bool heard = false;  // of the response
    bool reading = true;
    size_t nextChunk = 0;  // counted from the first chunk of the response
  };

  void* Cookie() const { return reinterpret_cast<void*>(static_cast<uintptr_t>(cookie_)); }
  size_t EndOfChunks() const { return firstChunk_ + chunks_.size(); }
  Joiner* FindJoiner(uint64_t number) {
    const auto found = joiners_.find(number);
    return found != joiners_.end() ? &found->second : nullptr;
  }

  void PostDelivery(uint64_t number) {
    fetcher_->tasks_.Post([fetcher = fetcher_, id = id_, number] {
      if (Fetch* const fetch = fetcher->Find(id)) fetch->Deliver(number);
    });
  }

  void DeliverToAll() {
    std::vector<uint64_t> numbers;
    for (const auto& [number, joiner] : joiners_) numbers.push_back(number);
    for (const uint64_t number : numbers) Deliver(number);
    Tidy();
  }

  void TellPlugin(int32_t result) {
    if (fetcher_ == nullptr || !std::exchange(pluginHears_, false)) return;
    fetcher_->running_.erase(cookie_);
    fetcher_->plugin_.FetchDone(Cookie(), result);
    fetcher_->observer_.OnFetchEnded(cookie_, result, report_);
  }

  void End(int32_t result) {
    timer_.Stop();
    TellPlugin(result);
    result_ = result;
    DeliverToAll();
  }

  void StopTransfer() {
    if (transfer_ != 0) report_ = fetcher_->transport_.Cancel(std::exchange(transfer_, 0));
  }

  // Drops what is no longer needed: chunks, the transfer, the fetch itself.
  void Tidy() {
    if (fetcher_ == nullptr) return;
    if (!pluginHears_) {  // it cannot be joined any more
      size_t needed = EndOfChunks();
      for (const auto& [number, joiner] : joiners_) needed = std::min(needed, joiner.nextChunk);
      for (; firstChunk_ < needed; ++firstChunk_) chunks_.pop_front();
      if (joiners_.empty()) {
        StopTransfer();
        timer_.Stop();
        fetcher_->fetches_.erase(id_);
        return;
      }
    }
    if (transfer_ == 0) return;
    // The plugin's limit bounds what it accepts. If only joiners read the body, it has to wait for them.
    size_t waiting = 0;
    for (const auto& chunk : chunks_) waiting += chunk->size();
    const bool reading = pluginHears_ || waiting < kMostLagging;
    if (std::exchange(reading_, reading) == reading) return;
    if (reading) MadeProgress();
    fetcher_->transport_.SetReading(transfer_, reading);
  }

  void MadeProgress() { progressUs_ = fetcher_->executor_.Now().ToInternalValue(); }

  // Checks again when the next of the two limits is reached. The first limit matters only while a joiner
  // waits that has received nothing.
  void WatchProgress() {
    if (transfer_ == 0) return;
    const int64_t idleUs = fetcher_->executor_.Now().ToInternalValue() - progressUs_;
    const bool somebodyWaits = std::any_of(joiners_.begin(), joiners_.end(),
                                           [](const auto& joiner) { return !joiner.second.heard; });
    const int64_t joinUs = fetcher_->settings_.joinPatienceMs * 1000;
    int64_t limitUs = fetcher_->settings_.fetchPatienceMs * 1000;
    if (somebodyWaits) limitUs = std::min(limitUs, joinUs);
    timer_.Start(std::max<int64_t>(limitUs - idleUs, 0), [this] { CheckProgress(); });
  }

  void CheckProgress() {
    const auto self = shared_from_this();
    const int64_t idleUs = fetcher_->executor_.Now().ToInternalValue() - progressUs_;
    if (reading_ && idleUs >= fetcher_->settings_.fetchPatienceMs * 1000) {
      StopTransfer();
      return End(kTimedOut);
    }
    if (idleUs >= fetcher_->settings_.joinPatienceMs * 1000) {
      std::vector<uint64_t> numbers;
      for (const auto& [number, joiner] : joiners_) {
        if (!joiner.heard) numbers.push_back(number);
      }
      for (const uint64_t number : numbers) {
        if (Joiner* const waiting = FindJoiner(number); waiting != nullptr && !waiting->heard) {
          FetchJoiner* const joiner = waiting->joiner;
          Leave(number);
          joiner->OnJoinStalled();
          if (fetcher_ == nullptr) return;
        }
      }
    }
    if (!reading_) MadeProgress();
    WatchProgress();
  }

  Fetcher* fetcher_;  // null after it was destroyed
  const uint64_t id_;
  const uint32_t cookie_;
  net::URLRequestContext* const context_;
  TransferId transfer_ = 0;  // 0 while there is none
  bool pluginHears_ = true;  // FetchDone is still due
  bool reading_ = true;      // the transfer is not paused
  std::string sentHeaders_;
  std::optional<net::HttpResponseHeaders> response_;
  int64_t declared_ = -1;
  int64_t received_ = 0;
  std::optional<int32_t> result_;  // of the end
  TransferReport report_;
  size_t firstChunk_ = 0;  // the number of chunks_.front()
  std::deque<std::shared_ptr<const std::string>> chunks_;
  uint64_t lastJoiner_ = 0;
  std::map<uint64_t, Joiner> joiners_;
  int64_t progressUs_ = 0;  // when something was last received
  Timer timer_;
};

Fetcher::Fetcher(const PluginFunctions& plugin, Executor& executor, Transport& transport,
                 const HostSettings& settings, FetchObserver& observer)
    : plugin_(plugin),
      executor_(executor),
      transport_(transport),
      settings_(settings),
      observer_(observer),
      tasks_(executor) {}

Fetcher::~Fetcher() {
  for (const auto& [id, fetch] : std::exchange(fetches_, {})) fetch->Detach();
}

Fetcher::Fetch* Fetcher::Find(uint64_t id) const {
  const auto found = fetches_.find(id);
  return found != fetches_.end() ? found->second.get() : nullptr;
}

int Fetcher::Start(void* cookie, net::URLRequestContext* context) {
  const auto number = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(cookie));
  if (running_.contains(number)) return 0;
  const uint64_t id = ++lastId_;
  fetches_[id] = std::make_shared<Fetch>(*this, id, number, context);
  running_[number] = id;
  // The plugin holds its lock while it calls CorvaneFetch, so the callbacks must come from a task.
  tasks_.Post([this, id] {
    if (Fetch* const fetch = Find(id)) fetch->Begin();
  });
  return 1;
}

JoinId Fetcher::Join(uint32_t cookie, FetchJoiner& joiner) {
  const uint64_t id = running_.at(cookie);
  return {id, fetches_.at(id)->Join(joiner)};
}

void Fetcher::Leave(JoinId id) {
  if (Fetch* const fetch = Find(id.fetch)) fetch->Leave(id.joiner);
}

void Fetcher::SetReading(JoinId id, bool reading) {
  if (Fetch* const fetch = Find(id.fetch)) fetch->SetReading(id.joiner, reading);
}

TransferReport Fetcher::Abandon(uint32_t cookie) {
  const auto running = running_.find(cookie);
  return running != running_.end() ? fetches_.at(running->second)->Abandon() : TransferReport();
}

}  // namespace host
