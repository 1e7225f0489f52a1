#include "replay/model/plain_ways.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/connection_group.h"
#include "host/order_policy.h"
#include "host/preconnect_policy.h"
#include "plugin/properties.h"
#include "replay/model/network_model.h"
#include "replay/model/page_load.h"

namespace replay {
namespace {

// A browser without the plugin, which answers from the disk cache or else from the network. Subclasses decide
// what answers before the network.
class PlainBrowser {
 public:
  PlainBrowser(const VisitSetup& setup, DiskCache& diskCache)
      : setup_(setup),
        network_(clock_, setup.options.profile, setup.options.costs, setup.recordedNetwork, setup.settings,
                 [&setup](const host::TransferRequest& request) { return FindRecorded(setup, request); }),
        diskCache_(diskCache),
        load_(clock_, setup.plan, [this](size_t index) { Ask(index); }) {}

  // Is called for each resource that the disk cache cannot answer, before the network. Returns true if it
  // answers the request itself.
  std::function<bool(size_t index)> answerFirst;
  std::function<void(size_t index)> onFirstByte;

  WayResult Run() {
    load_.Begin();
    clock_.Run();
    WayResult result = load_.Finish();
    result.connections = network_.Connections();
    result.unusedConnections = network_.UnusedConnections();
    return result;
  }

  // Answers a request at once, without a transfer.
  void Answer(size_t index, Source source) {
    load_.Row(index).source = source;
    if (source != Source::DiskCache) Store(index);
    load_.AnswerAtOnce(index);
  }

  const VisitSetup& Setup() const { return setup_; }
  host::VirtualClock& Clock() { return clock_; }
  NetworkModel& Network() { return network_; }
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
      browser_.Store(index_);
      browser_.load_.Done(index_);
    }

   private:
    PlainBrowser& browser_;
    const size_t index_;
  };

  void Ask(size_t index) {
    const Request& request = setup_.page.requests[index];
    if (request.method == "GET" && IsFresh(request.url)) return Answer(index, Source::DiskCache);
    if (index > setup_.page.document && answerFirst && answerFirst(index)) return;
    transactions_.push_back(std::make_unique<Transaction>(*this, index));
    transactions_.back()->Start();
  }

  void Store(size_t index) { diskCache_.Store(setup_.page.requests[index], setup_.nowUs + clock_.NowUs()); }

  const VisitSetup& setup_;
  host::VirtualClock clock_;
  NetworkModel network_;
  DiskCache& diskCache_;
  PageLoad load_;
  std::vector<std::unique_ptr<Transaction>> transactions_;
};

// Responses by URL that have arrived, or are arriving, before the page requests them.
class EarlyResponses {
 public:
  explicit EarlyResponses(PlainBrowser& browser) : browser_(browser) {}

  bool Has(const std::string& url) const { return responses_.contains(url); }
  void Expect(const std::string& url) { responses_[url]; }
  void Arrived(const std::string& url) {
    Response& response = responses_.at(url);
    response.isThere = true;
    for (const size_t index : std::exchange(response.waiting, {})) browser_.Answer(index, Source::Joined);
  }

  // Whether one of them answers the request, at once or when it arrives.
  bool Answer(size_t index) {
    const Request& request = browser_.Setup().page.requests[index];
    const auto found = responses_.find(request.url);
    if (found == responses_.end() || request.method != "GET") return false;
    if (found->second.isThere) {
      browser_.Answer(index, Source::Memory);
    } else {
      found->second.waiting.push_back(index);
    }
    return true;
  }

 private:
  struct Response {
    bool isThere = false;
    std::vector<size_t> waiting;
  };

  PlainBrowser& browser_;
  std::map<std::string, Response> responses_;
};

// Server hints: the browser fetches known resources before the page requests them.
class HintedFetches {
 public:
  HintedFetches(PlainBrowser& browser, const host::KnownPage& known)
      : browser_(browser), known_(known), responses_(browser) {}

  void StartAll() {
    for (const host::KnownResource& resource : known_.resources) {
      if (!resource.get || browser_.IsFresh(resource.url)) continue;
      responses_.Expect(resource.url);
      fetches_.push_back(std::make_unique<Fetch>(responses_, resource.url));
      browser_.Network().Start({.url = resource.url, .method = "GET"}, *fetches_.back());
    }
  }
  bool Answer(size_t index) { return responses_.Answer(index); }

 private:
  struct Fetch final : host::TransferClient {
    Fetch(EarlyResponses& owner, const std::string& what) : responses(owner), url(what) {}

    void OnResponse(const net::HttpResponseHeaders& /*headers*/) override {}
    void OnBody(const char* /*bytes*/, int32_t /*count*/) override {}
    void OnDone(int32_t /*result*/, const host::TransferReport& /*report*/) override {
      responses.Arrived(url);
    }

    EarlyResponses& responses;
    const std::string& url;
  };

  PlainBrowser& browser_;
  const host::KnownPage& known_;
  EarlyResponses responses_;
  std::vector<std::unique_ptr<Fetch>> fetches_;
};

// What the best possible host could achieve: every resource that the visit requests, that earlier visits have
// requested, and that the plugin could hold, arrives in the order in which the page requests it, one after
// the other and yielding like preloads. A resource that the page requests arrives at once.
class ReachableResponses {
 public:
  ReachableResponses(PlainBrowser& browser, const host::KnownPage& known)
      : browser_(browser), responses_(browser) {
    const uint64_t sizeLimit = static_cast<uint32_t>(kiv::ReadProperty(kiv::property::kCacheSizeLimit));
    std::set<std::string_view> holdable;
    for (const host::KnownResource& resource : known.resources) {
      if (host::WhyNotHoldable(resource, sizeLimit) == host::NotServed::None) holdable.insert(resource.url);
    }
    const Page& page = browser.Setup().page;
    for (size_t index = page.document + 1; index < page.requests.size(); ++index) {
      const Request& request = page.requests[index];
      if (request.method != "GET" || !holdable.contains(request.url) || browser.IsFresh(request.url) ||
          responses_.Has(request.url)) {
        continue;
      }
      responses_.Expect(request.url);
      queue_.push_back(&request);
    }
  }

  void StartNext() {
    if (queue_.empty()) return;
    const Request* const next = queue_.front();
    queue_.pop_front();
    Start(*next, host::Urgency::Preload, [this] { StartNext(); });
  }

  bool Answer(size_t index) {
    if (!responses_.Answer(index)) return false;
    const std::string& url = browser_.Setup().page.requests[index].url;
    if (const auto running = running_.find(url); running != running_.end()) {
      browser_.Network().SetReceivingUrgency(running->second, host::Urgency::Browser);
    }
    const auto queued = std::find_if(queue_.begin(), queue_.end(),
                                     [&url](const Request* request) { return request->url == url; });
    if (queued == queue_.end()) return true;
    const Request* const request = *queued;
    queue_.erase(queued);
    Start(*request, host::Urgency::Browser, [] {});
    return true;
  }

 private:
  void Start(const Request& request, host::Urgency urgency, std::function<void()> then) {
    running_[request.url] =
        browser_.Network().ReceiveAlone(request, urgency, [this, &request, then = std::move(then)] {
          running_.erase(request.url);
          responses_.Arrived(request.url);
          then();
        });
  }

  PlainBrowser& browser_;
  EarlyResponses responses_;
  std::deque<const Request*> queue_;
  std::map<std::string, uint64_t> running_;  // the network's ids, by URL
};

std::set<std::string> KnownGroups(const host::KnownPage& known) {
  std::set<std::string> groups;
  for (const host::KnownResource& resource : known.resources) {
    groups.insert(host::ConnectionGroup(resource.url));
  }
  return groups;
}

WayResult RunHints(PlainBrowser& browser, const host::KnownPage& known) {
  HintedFetches hints(browser, known);
  browser.onFirstByte = [&](size_t index) {
    if (index == browser.Setup().page.document) hints.StartAll();
  };
  browser.answerFirst = [&](size_t index) { return hints.Answer(index); };
  return browser.Run();
}

WayResult RunPreconnect(PlainBrowser& browser, const host::KnownPage& known) {
  std::vector<bool> fresh;
  for (const host::KnownResource& resource : known.resources) {
    fresh.push_back(browser.IsFresh(resource.url));
  }
  for (const host::ConnectionNeed& need : DecidePreconnects(known, fresh, browser.Setup().settings)) {
    browser.Clock().PostDelayed(
        need.atUs, [&browser, need] { browser.Network().Preconnect(need.url, need.count, nullptr); });
  }
  return browser.Run();
}

WayResult RunReachable(PlainBrowser& browser, const host::KnownPage& known) {
  const Page& page = browser.Setup().page;
  std::set<std::string> groups = KnownGroups(known);
  for (size_t index = 0; index <= page.document; ++index) {
    groups.erase(host::ConnectionGroup(page.requests[index].url));
  }
  for (const std::string& group : groups) browser.Network().OpenConnections(group);
  browser.Clock().PostDelayed(0, [&] {
    const Request& document = page.requests[page.document];
    browser.Network().Preconnect(document.url, static_cast<size_t>(browser.Setup().settings.socketsPerGroup),
                                 nullptr);
  });
  ReachableResponses responses(browser, known);
  browser.answerFirst = [&](size_t index) { return responses.Answer(index); };
  browser.Clock().PostDelayed(0, [&responses] { responses.StartNext(); });
  return browser.Run();
}

WayResult RunOracle(PlainBrowser& browser, const host::KnownPage& known) {
  const Page& page = browser.Setup().page;
  std::set<std::string> groups = KnownGroups(known);
  groups.insert(host::ConnectionGroup(page.requests[0].url));
  groups.insert(host::ConnectionGroup(page.requests[page.document].url));
  for (const std::string& group : groups) browser.Network().OpenConnections(group);
  std::set<std::string_view> inMemory;
  for (const host::KnownResource& resource : known.resources) {
    if (resource.get) inMemory.insert(resource.url);
  }
  browser.answerFirst = [&](size_t index) {
    const Request& request = page.requests[index];
    if (request.method != "GET" || !inMemory.contains(request.url)) return false;
    browser.Answer(index, Source::Memory);
    return true;
  };
  return browser.Run();
}

}  // namespace

WayResult RunPlainWay(Way way, const VisitSetup& setup, const host::KnownPage* known, DiskCache& diskCache) {
  PlainBrowser browser(setup, diskCache);
  if (known == nullptr) return browser.Run();
  switch (way) {
    case Way::Off:
    case Way::Plugin:
      return browser.Run();
    case Way::Hints:
      return RunHints(browser, *known);
    case Way::Preconnect:
      return RunPreconnect(browser, *known);
    case Way::Reachable:
      return RunReachable(browser, *known);
    case Way::Oracle:
      return RunOracle(browser, *known);
  }
  return {};
}

}  // namespace replay
