#include "replay/model/ways.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "replay/model/network_model.h"
#include "replay/model/page_load.h"

namespace replay {
namespace {

// A browser without plugin: disk cache, else the network. What answers before that is the caller's matter.
class PlainBrowser {
 public:
  explicit PlainBrowser(const VisitSetup& setup)
      : setup_(setup),
        network_(clock_, setup.options.profile, setup.recordedNetwork, setup.settings,
                 [&setup](const host::TransferRequest& request) { return FindRecorded(setup, request); }),
        diskCache_(setup.diskCache),
        load_(clock_, setup.plan, [this](size_t index) { Ask(index); }) {}

  // Looks at each request before disk cache and network do; true when it has seen to the answer.
  std::function<bool(size_t index)> answerFirst;
  std::function<void(size_t index)> onFirstByte;

  WayResult Run() {
    load_.Begin();
    clock_.Run();
    WayResult way = load_.Finish();
    way.connections = network_.ConnectionCount();
    way.unusedConnections = network_.UnusedConnectionCount();
    return way;
  }

  host::VirtualClock& Clock() { return clock_; }
  NetworkModel& Network() { return network_; }
  PageLoad& Load() { return load_; }
  bool IsFresh(const std::string& url) const {
    return diskCache_.IsFresh(url, setup_.nowUs + clock_.NowUs());
  }

 private:
  class Transaction final : public host::TransferClient {
   public:
    Transaction(PlainBrowser& browser, size_t index) : browser_(browser), index_(index) {}

    void Start() {
      const Request& request = browser_.setup_.page.requests[index_];
      browser_.network_.Start({.url = request.url, .method = request.method, .requestId = index_ + 1}, *this);
    }
    void OnResponse(const net::HttpResponseHeaders& /*headers*/) override {
      browser_.load_.FirstByte(index_);
      if (browser_.onFirstByte) browser_.onFirstByte(index_);
    }
    void OnBody(const char* /*bytes*/, int32_t /*count*/) override {}
    void OnDone(int32_t /*result*/, const host::TransferReport& report) override {
      browser_.load_.Row(index_).connectUs = report.connect.ToInternalValue();
      browser_.load_.Row(index_).sentUs = report.sent.ToInternalValue();
      browser_.diskCache_.Store(browser_.setup_.page.requests[index_],
                                browser_.setup_.nowUs + browser_.clock_.NowUs());
      browser_.load_.Done(index_);
    }

   private:
    PlainBrowser& browser_;
    const size_t index_;
  };

  void Ask(size_t index) {
    const Request& request = setup_.page.requests[index];
    if (index > setup_.page.document && answerFirst && answerFirst(index)) return;
    if (request.method == "GET" && IsFresh(request.url)) {
      load_.Row(index).source = Source::DiskCache;
      load_.AnswerAtOnce(index);
      return;
    }
    transactions_.push_back(std::make_unique<Transaction>(*this, index));
    transactions_.back()->Start();
  }

  const VisitSetup& setup_;
  host::VirtualClock clock_;
  NetworkModel network_;
  DiskCache diskCache_;
  PageLoad load_;
  std::vector<std::unique_ptr<Transaction>> transactions_;
};

// What server hints have the browser fetch, before the page asks for it.
class HintedFetches {
 public:
  HintedFetches(PlainBrowser& browser, const host::KnownPage& known) : browser_(browser), known_(known) {}

  void StartAll() {
    for (const host::KnownResource& resource : known_.resources) {
      if (!resource.get || browser_.IsFresh(resource.url)) continue;
      auto fetch = std::make_unique<Fetch>(browser_);
      browser_.Network().Start({.url = resource.url, .method = "GET"}, *fetch);
      fetches_[resource.url] = std::move(fetch);
    }
  }

  bool Answer(size_t index, const Request& request) {
    const auto found = fetches_.find(request.url);
    if (found == fetches_.end() || request.method != "GET") return false;
    Fetch& fetch = *found->second;
    browser_.Load().Row(index).source = fetch.done ? Source::Memory : Source::Joined;
    if (fetch.done) {
      browser_.Load().AnswerAtOnce(index);
    } else {
      fetch.waiting.push_back(index);
    }
    return true;
  }

 private:
  struct Fetch final : host::TransferClient {
    explicit Fetch(PlainBrowser& owner) : browser(owner) {}

    void OnResponse(const net::HttpResponseHeaders& /*headers*/) override {}
    void OnBody(const char* /*bytes*/, int32_t /*count*/) override {}
    void OnDone(int32_t /*result*/, const host::TransferReport& /*report*/) override {
      done = true;
      for (const size_t index : waiting) browser.Load().AnswerAtOnce(index);
    }

    PlainBrowser& browser;
    bool done = false;
    std::vector<size_t> waiting;
  };

  PlainBrowser& browser_;
  const host::KnownPage& known_;
  std::map<std::string, std::unique_ptr<Fetch>> fetches_;
};

}  // namespace

void AddToIndex(const Page& page, RequestIndex& index) {
  for (const Request& request : page.requests) {
    if (request.method == "GET") index.try_emplace(request.url, &request);
  }
}

const Request* FindRecorded(const VisitSetup& setup, const host::TransferRequest& request) {
  if (request.requestId != 0) return &setup.page.requests[request.requestId - 1];
  for (const RequestIndex* const index : {&setup.pageIndex, &setup.recordingIndex}) {
    if (const auto found = index->find(request.url); found != index->end()) return found->second;
  }
  return nullptr;
}

WayResult RunOff(const VisitSetup& setup) {
  return PlainBrowser(setup).Run();
}

WayResult RunHints(const VisitSetup& setup, const host::KnownPage* known) {
  PlainBrowser browser(setup);
  const host::KnownPage nothing;
  HintedFetches hints(browser, known != nullptr ? *known : nothing);
  browser.onFirstByte = [&](size_t index) {
    if (index == setup.page.document) hints.StartAll();
  };
  browser.answerFirst = [&](size_t index) { return hints.Answer(index, setup.page.requests[index]); };
  return browser.Run();
}

WayResult RunOracle(const VisitSetup& setup, const host::KnownPage* known) {
  PlainBrowser browser(setup);
  std::set<std::string> inMemory;
  browser.Network().OpenConnections(setup.page.requests[0].url);
  browser.Network().OpenConnections(setup.page.requests[setup.page.document].url);
  if (known != nullptr) {
    for (const host::KnownResource& resource : known->resources) {
      browser.Network().OpenConnections(resource.url);
      if (resource.get) inMemory.insert(resource.url);
    }
  }
  browser.answerFirst = [&](size_t index) {
    const Request& request = setup.page.requests[index];
    if (request.method != "GET" || !inMemory.contains(request.url)) return false;
    browser.Load().Row(index).source = Source::Memory;
    browser.Load().AnswerAtOnce(index);
    return true;
  };
  return browser.Run();
}

}  // namespace replay
