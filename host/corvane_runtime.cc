#include "host/corvane_runtime.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "cache/html_check.h"
#include "host/order_policy.h"
#include "host/reuse_rules.h"
#include "plugin/properties.h"

namespace host {
namespace {

std::string HostPortOf(const std::string& url) {
  std::string hostPort;
  CorvaneGetHostPortFromUrl(url, hostPort);
  return hostPort;
}

void Count(std::map<std::string, int>& counts, const std::string& hostPort, int change) {
  const auto place = counts.try_emplace(hostPort, 0).first;
  place->second += change;
  if (place->second <= 0) counts.erase(place);
}

}  // namespace

CorvaneRuntime::CorvaneRuntime(const PluginFunctions& plugin, Executor& executor, Transport& transport,
                               const HostSettings& settings)
    : plugin_(plugin),
      executor_(executor),
      transport_(transport),
      settings_(settings),
      sender_(plugin, [this] { AnnounceLaunches(); }),
      answers_(
          executor, settings,
          [this](void* cookie, net::URLRequestContext* context) { return StartFetch(cookie, context); },
          [this](CorvaneCmd* cmd, unsigned int delayMs) {
            const std::shared_ptr<CorvaneCmd> kept(cmd, corvane::FreeCommand);  // freed in any case
            tasks_.Post([this, kept] { sender_.SendBack(kept.get()); }, int64_t{delayMs} * 1000);
          }),
      fetcher_(plugin, executor, transport, settings, *this),
      database_(settings),
      toldResources_(settings.maxToldResources),
      tasks_(executor) {}

// The plugin may stay loaded, so it must forget this host's orders and contexts.
CorvaneRuntime::~CorvaneRuntime() {
  Flush();
  plugin_.OnClearDb(0);
}

void CorvaneRuntime::Start() {
  // Read the plugin's limits, because the host must order only what the plugin can hold.
  sizeLimit_ = static_cast<uint32_t>(kiv::ReadProperty(kiv::property::kCacheSizeLimit));
  neverLaunches_ = kiv::ReadProperty(kiv::property::kPreloadLimit) == 0 ||
                   kiv::ReadProperty(kiv::property::kIdleSockets) == answers_.MaxSocketsPerGroup();
  sender_.Start();
}

void CorvaneRuntime::NetworkStackIsUp() {
  if (std::exchange(answers_.networkStackIsUp, true)) return;
  sender_.StartDelayedFetches();
  for (auto& [tab, page] : pages_) {
    if (!page.left) OrderKnown(page);
  }
}

// --- Events of the browser

int64_t CorvaneRuntime::Since(base::Time time) const {
  return executor_.Now().ToInternalValue() - time.ToInternalValue();
}

CorvaneRuntime::OpenPage* CorvaneRuntime::FindPage(TabId tab) {
  const auto found = pages_.find(tab);
  return found != pages_.end() && !found->second.left ? &found->second : nullptr;
}

bool CorvaneRuntime::IsOpenPage(const std::string& url) const {
  return std::any_of(pages_.begin(), pages_.end(), [&url](const auto& place) {
    return !place.second.left && place.second.request.url == url;
  });
}

void CorvaneRuntime::PageRequested(const PageRequest& request) {
  TabClosed(request.tab);
  SettleIdlePages();
  OpenPage& page = pages_
                       .emplace(request.tab, OpenPage{.tab = request.tab,
                                                      .request = request,
                                                      .visit = PageVisit(request.url, settings_),
                                                      .requested = executor_.Now(),
                                                      .lastRequest = executor_.Now()})
                       .first->second;
  // If the page was first seen as a resource of another page, it would stay a resource, without a context.
  if (toldResources_.Erase(request.url)) sender_.CacheStatus(request.url, false);
  sender_.PageRequested(request.url, request.method, request.headers);
  sender_.RequestSeen(request.url, request.headers, request.context);
  if (answers_.networkStackIsUp) OrderKnown(page);
}

void CorvaneRuntime::ResourceSeen(TabId tab, const SeenResource& resource) {
  OpenPage* const page = FindPage(tab);
  if (page == nullptr || resource.url == page->request.url) return;
  page->lastRequest = executor_.Now();
  page->visit.ResourceSeen(resource, Since(page->requested));
  if (!IsOpenPage(resource.url)) toldResources_.Use(resource.url);  // otherwise the plugin knows it as a page
  if (const auto forgotten = toldResources_.DropExcess()) sender_.CacheStatus(*forgotten, false);
  sender_.ResourceSeen(page->request.url, resource.url);
}

void CorvaneRuntime::ResponseSeen(TabId tab, const std::string& url,
                                  const net::HttpResponseHeaders& headers) {
  if (OpenPage* const page = FindPage(tab)) {
    page->visit.ResponseSeen(url, headers, Since(page->requested));
  }
}

void CorvaneRuntime::FirstPaint(TabId tab) {
  if (OpenPage* const page = FindPage(tab)) page->visit.FirstPaint();
}

void CorvaneRuntime::LoadEvent(TabId tab) {
  if (OpenPage* const page = FindPage(tab)) page->visit.LoadEvent();
}

void CorvaneRuntime::PageLeft(TabId tab) {
  if (OpenPage* const page = FindPage(tab)) LeavePage(*page);
}

void CorvaneRuntime::TabClosed(TabId tab) {
  PageLeft(tab);
  pages_.erase(tab);
}

void CorvaneRuntime::SettleIdlePages() {
  const int64_t nowUs = executor_.Now().ToInternalValue();
  DropOrders([&](const Order& order) {
    return nowUs - pages_.at(order.tab).lastRequest.ToInternalValue() > settings_.settleAfterMs * 1000;
  });
}

void CorvaneRuntime::CacheStatus(const std::string& url, bool held) {
  for (auto& [tab, page] : pages_) {
    if (page.request.url == url) page.forgetWhenLeft = !held;
  }
  if (held || !IsOpenPage(url)) sender_.CacheStatus(url, held);
}

void CorvaneRuntime::AnsweredByCache(TabId tab, const std::string& url) {
  const OrderPlace place = FindOrder(url);
  if (place != orders_.end() && place->second.tab == tab &&
      place->second.record->stage == PreloadStage::Held) {
    DropOrders([&url](const Order& order) { return order.url == url; });
  }
}

// --- Orders

void CorvaneRuntime::OrderKnown(OpenPage& page) {
  const KnownPage* const known = database_.Find(page.request.url);
  if (known == nullptr) return;
  const OrderFacts facts = {
      .pluginTakesOrders = sender_.IsOn() && plugin_.IsPreloaderEnabled() != 0,
      .sizeLimit = sizeLimit_,
      .hasContext = page.request.context != nullptr && page.request.method == "GET",
      .isFresh = page.request.isFresh,
      .whyNot = page.request.whyNot,
  };
  std::vector<std::pair<uint32_t, PreloadRecord*>> wanted;
  std::vector<bool> covered(known->resources.size());
  for (const OrderDecision& decision : DecideOrders(*known, facts, settings_)) {
    const KnownResource& resource = known->resources[decision.resource];
    PreloadRecord& record = page.ledger[resource.url];
    record.url = resource.url;
    record.kind = resource.kind;
    record.withCredentials = resource.withCredentials;
    record.headersToRepeat = resource.headersToRepeat;
    record.notOrdered = decision.why;
    covered[decision.resource] =
        decision.why == NotServed::None || decision.why == NotServed::FreshInDiskCache;
    if (record.notOrdered != NotServed::None) continue;
    const auto [place, isNew] = orders_.try_emplace(CorvaneHash(record.url.c_str()));
    if (!isNew) {
      record.notOrdered = place->second.url == record.url ? NotServed::OtherPage : NotServed::SharesHash;
      continue;
    }
    place->second = {record.url, HostPortOf(record.url), page.tab, &record};
    record.orderId = ++lastOrderId_;
    record.stage = PreloadStage::Ordered;
    record.ordered = executor_.Now();
    wanted.emplace_back(decision.priority, &record);
  }
  for (const auto& [priority, record] : wanted) {
    sender_.OrderPreload(record->url, page.request.url, priority);
  }
  if (settings_.preconnect && facts.pluginTakesOrders && facts.hasContext) {
    PlanConnections(page, *known, covered);
  }
}

// The connections of the preloads come first: those are asked for by the time that these are planned for.
void CorvaneRuntime::PlanConnections(OpenPage& page, const KnownPage& known,
                                     const std::vector<bool>& covered) {
  page.needs = DecidePreconnects(known, covered, settings_);
  std::reverse(page.needs.begin(), page.needs.end());
  page.nextNeed = std::make_unique<Timer>(executor_);
  page.nextNeed->Start(0, [this, &page] { OpenDueConnections(page); });
}

void CorvaneRuntime::OpenDueConnections(OpenPage& page) {
  const int64_t sinceUs = Since(page.requested);
  while (!page.needs.empty() && page.needs.back().atUs <= sinceUs) {
    transport_.Preconnect(page.needs.back().url, page.needs.back().count, page.request.context);
    page.needs.pop_back();
  }
  if (page.needs.empty()) return;
  page.nextNeed->Start(page.needs.back().atUs - sinceUs, [this, &page] { OpenDueConnections(page); });
}

// Implements CorvaneFetch. The plugin knows only one context for a page, that of the last tab that requested
// it. This tab may have another one, and the context of the other tab may not exist any more.
int CorvaneRuntime::StartFetch(void* cookie, net::URLRequestContext* context) {
  const auto number = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(cookie));
  if (const auto place = orders_.find(number); place != orders_.end()) {
    context = pages_.at(place->second.tab).request.context;
  }
  const int started = fetcher_.Start(cookie, context);
  if (started != 0) justLaunched_.push_back(number);
  return started;
}

// The fetcher's transfers are announced to the plugin like the browser's transactions. Otherwise the plugin
// would forget a host and port whose queue is empty while preloads to it are still running, count the next
// ones from 0, and log unbalanced preloading. This must happen before the next command, because the plugin
// forgets hosts while it handles a command.
void CorvaneRuntime::AnnounceLaunches() {
  for (const uint32_t cookie : std::exchange(justLaunched_, {})) {
    const auto place = orders_.find(cookie);
    if (place == orders_.end()) continue;
    Order& order = place->second;
    Count(preloadsInFlight_, order.hostPort, 1);
    order.record->stage = PreloadStage::Launched;
    order.record->launched = executor_.Now();
    order.transactionId = TransactionStarts(order.url);
  }
}

CorvaneRuntime::OrderPlace CorvaneRuntime::FindOrder(const std::string& url) {
  const auto place = orders_.find(CorvaneHash(url.c_str()));
  return place != orders_.end() && place->second.url == url ? place : orders_.end();
}

// A failed preload would prevent its URL from being launched again. Only a release removes it from the
// plugin. This release ends nobody's loan, because Take borrows and returns a body in one call.
void CorvaneRuntime::ReleaseFailed(const std::string& url) {
  plugin_.ReleasePreloaded(url.c_str());
}

// The plugin removes a preload from its queue when a transaction for the URL starts. All of these start
// before the first one is done, because the plugin launches queued preloads at the end of each.
std::vector<CorvaneRuntime::Order> CorvaneRuntime::EndOrders(const std::function<bool(const Order&)>& which) {
  std::vector<Order> ended;
  for (auto place = orders_.begin(); place != orders_.end();) {
    if (!which(place->second)) {
      ++place;
      continue;
    }
    ended.push_back(std::move(place->second));
    place = orders_.erase(place);
  }
  for (Order& order : ended) {
    if (order.record->stage == PreloadStage::Ordered) order.transactionId = TransactionStarts(order.url);
    if (order.record->stage == PreloadStage::Launched) {
      Count(preloadsInFlight_, order.hostPort, -1);
      order.record->transfer = fetcher_.Abandon(CorvaneHash(order.url.c_str()));
    }
  }
  for (const Order& order : ended) {
    if (order.transactionId != 0) TransactionDone(order.url, order.transactionId);
  }
  return ended;
}

void CorvaneRuntime::DropOrders(const std::function<bool(const Order&)>& which) {
  for (const Order& order : EndOrders(which)) {
    PreloadStage& stage = order.record->stage;
    if (stage == PreloadStage::Held) plugin_.IsInDC(order.url.c_str());
    if (stage == PreloadStage::Launched) ReleaseFailed(order.url);
    if (stage != PreloadStage::Ordered) stage = PreloadStage::Dropped;
  }
}

void CorvaneRuntime::Flush() {
  for (const Order& order : EndOrders([](const Order& /*order*/) { return true; })) {
    if (order.record->stage != PreloadStage::Ordered) order.record->stage = PreloadStage::Dropped;
  }
  plugin_.OnFlushDb(0);
}

void CorvaneRuntime::LeavePage(OpenPage& page) {
  database_.Remember(std::move(page.visit));
  page.left = true;
  page.nextNeed.reset();
  if (SomePageIsLoading()) {
    DropOrders([&page](const Order& order) { return order.tab == page.tab; });
  } else {
    Flush();
  }
  if (page.forgetWhenLeft && !IsOpenPage(page.request.url)) sender_.CacheStatus(page.request.url, false);
}

// Whether an open page has preloads that it may still request, or has not ordered its preloads yet. A flush
// would remove them, and also the context that queued preloads need.
bool CorvaneRuntime::SomePageIsLoading() const {
  const auto isOpen = [](const auto& page) { return !page.second.left; };
  if (!answers_.networkStackIsUp) return std::any_of(pages_.begin(), pages_.end(), isOpen);
  return std::any_of(orders_.begin(), orders_.end(),
                     [&](const auto& order) { return isOpen(*pages_.find(order.second.tab)); });
}

// --- Events of the fetcher

std::string CorvaneRuntime::OnFetchBegins(uint32_t cookie, net::URLRequestContext* context,
                                          const std::string& pluginHeaders) {
  const auto place = orders_.find(cookie);
  if (place == orders_.end()) return pluginHeaders;
  PreloadRecord& record = *place->second.record;
  std::string cookies;
  if (record.withCredentials && context != nullptr) cookies = context->CookiesFor(record.url);
  record.sentHeaders = HeadersToSend(pluginHeaders, record.headersToRepeat, cookies);
  return record.sentHeaders;
}

void CorvaneRuntime::OnFetchResponse(uint32_t cookie, const net::HttpResponseHeaders& headers,
                                     bool accepted) {
  const auto place = orders_.find(cookie);
  if (place == orders_.end()) return;
  PreloadRecord& record = *place->second.record;
  ResponseSeen(place->second.tab, record.url, headers);
  record.responseBlock = headers.raw_headers();
  record.status = headers.response_code();
  record.declaredLength = headers.GetContentLength();
  record.refused = !accepted;
}

void CorvaneRuntime::OnFetchEnded(uint32_t cookie, int32_t result, const TransferReport& report) {
  const auto place = orders_.find(cookie);
  if (place == orders_.end()) return;
  Order& order = place->second;
  Count(preloadsInFlight_, order.hostPort, -1);
  PreloadRecord& record = *order.record;
  const bool held = result == kOk && !record.refused && record.status == 200 && record.declaredLength != 0 &&
                    !kiv::MentionsHtml(record.responseBlock);
  record.stage = held ? PreloadStage::Held : PreloadStage::Failed;
  record.transfer = report;
  const std::string url = order.url;
  const uint32_t transactionId = order.transactionId;
  if (!held) {
    orders_.erase(place);
    ReleaseFailed(url);
  }
  // FetchDone has freed a slot but started nothing. This makes the plugin launch what fits.
  TransactionDone(url, transactionId);
}

// --- For the network stack

uint32_t CorvaneRuntime::TransactionStarts(const std::string& url) {
  const std::string hostPort = HostPortOf(url);
  const OrderPlace place = FindOrder(url);
  if (place != orders_.end() && place->second.record->stage == PreloadStage::Ordered) {
    // It still waits, and not only because transactions of the browser use the sockets.
    place->second.record->limitReached =
        neverLaunches_ || preloadsInFlight_.contains(hostPort) || !openTransactions_.contains(hostPort);
    orders_.erase(place);  // the plugin removes it from its queue
  }
  Count(openTransactions_, hostPort, 1);
  const uint32_t id = ++lastTransactionId_;
  sender_.TransactionStarted(url, id);
  return id;
}

void CorvaneRuntime::TransactionDone(const std::string& url, uint32_t id) {
  Count(openTransactions_, HostPortOf(url), -1);
  sender_.TransactionDone(url, id);
}

bool CorvaneRuntime::ServesPreloads() const {
  return plugin_.IsPreloaderEnabled() != 0;
}

const PreloadRecord* CorvaneRuntime::FindRecord(TabId tab, const std::string& url) const {
  const auto page = pages_.find(tab);
  if (page == pages_.end()) return nullptr;
  const auto found = page->second.ledger.find(url);
  return found != page->second.ledger.end() ? &found->second : nullptr;
}

bool CorvaneRuntime::Take(const PreloadRecord& record, std::string& responseBlock, std::string& body) {
  const OrderPlace place = FindOrder(record.url);
  if (place == orders_.end()) return false;
  const char* lent = nullptr;
  int32_t length = 0;
  if (plugin_.IsPreloaded(record.url.c_str(), &responseBlock, &lent, &length) == 0) {
    place->second.record->stage = PreloadStage::Failed;
    orders_.erase(place);
    return false;
  }
  body.assign(lent, static_cast<size_t>(length));
  plugin_.ReleasePreloaded(record.url.c_str());
  place->second.record->used = true;
  orders_.erase(place);
  return true;
}

JoinId CorvaneRuntime::Join(const PreloadRecord& record, FetchJoiner& joiner) {
  const OrderPlace place = FindOrder(record.url);
  place->second.record->joined = true;
  return fetcher_.Join(place->first, joiner);
}

void CorvaneRuntime::GotByJoining(TabId tab, const std::string& url, uint64_t orderId) {
  OpenPage* const page = FindPage(tab);
  if (page == nullptr) return;
  const auto found = page->ledger.find(url);
  if (found == page->ledger.end() || found->second.orderId != orderId) return;
  found->second.used = true;
  // The plugin may hold it no more, or for another page by now.
  const OrderPlace place = FindOrder(url);
  if (place == orders_.end() || place->second.record != &found->second) return;
  orders_.erase(place);
  plugin_.IsInDC(url.c_str());  // drops the copy without ending a loan
}

void CorvaneRuntime::Invalidate(const std::string& url) {
  const OrderPlace place = FindOrder(url);
  if (place == orders_.end()) return;
  place->second.record->invalidated = true;
  DropOrders([&url](const Order& order) { return order.url == url; });
}

// --- For reports

const PreloadLedger& CorvaneRuntime::Ledger(TabId tab) const {
  static const PreloadLedger nothing;
  const auto page = pages_.find(tab);
  return page != pages_.end() ? page->second.ledger : nothing;
}

}  // namespace host
