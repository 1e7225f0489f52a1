#include "replay/model/plain_ways.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/preconnect_policy.h"
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
    case Way::Oracle:
      break;
  }
  return {};
}

}  // namespace replay
