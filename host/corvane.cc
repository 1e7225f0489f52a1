#include "host/corvane.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "corvane/command.h"
#include "cutils/properties.h"

namespace host {
namespace {

// Load flags of a preload, as the plugin's own orders have them.
constexpr uint32_t kPreloadLoadFlags = 0x800000;

// Most urgent first: what holds up rendering and brings more resources, then what fills in.
uint32_t Rank(ResourceKind kind) {
  switch (kind) {
    case ResourceKind::Stylesheet:
    case ResourceKind::Script:
    case ResourceKind::Font:
    case ResourceKind::Document:
      return 0;
    case ResourceKind::Data:
    case ResourceKind::Other:
      return 1;
    case ResourceKind::Image:
    case ResourceKind::Media:
      return 2;
  }
  return 2;
}

// Smaller goes first; the kind decides, then the position on the page.
uint32_t Priority(ResourceKind kind, size_t position) {
  constexpr uint32_t kPositions = 10000;
  return Rank(kind) * kPositions + static_cast<uint32_t>(std::min<size_t>(position, kPositions - 1));
}

long Property(const char* name, const char* fallback) {
  char value[PROPERTY_VALUE_MAX];
  property_get(name, value, fallback);
  return std::strtol(value, nullptr, 10);
}

std::string HostPortOf(const std::string& url) {
  std::string hostPort;
  CorvaneGetHostPortFromUrl(url, hostPort);
  return hostPort;
}

}  // namespace

Corvane::Corvane(const PluginFunctions& plugin, Executor& executor, Transport& transport,
                 const HostSettings& settings)
    : plugin_(plugin),
      executor_(executor),
      settings_(settings),
      fetcher_(plugin, executor, transport, *this) {
  corvane::SetHost(this);
}

Corvane::~Corvane() {
  corvane::SetHost(nullptr);
}

void Corvane::Start() {
  // What the host orders must be what the plugin can hold, so it reads the same limits.
  pluginIsOn_ = Property("net.cv.kiv.on", "1") != 0;
  sizeLimit_ = static_cast<uint32_t>(Property("net.cv.kiv.cslimit", "2097152"));
  neverLaunches_ = Property("net.cv.kiv.prlimit", "5") == 0 ||
                   Property("net.cv.kiv.idlesock", "1") == MaxSocketsPerGroup();
  plugin_.OnInit(0);
  plugin_.OnGetCmdMask(&mask_);
}

void Corvane::NetworkStackIsUp() {
  networkStackIsUp_ = true;
  Send(corvane::NewCommand(8, 20));
}

void Corvane::PageRequested(const PageRequest& page) {
  if (settings_.flushBeforePage) Flush();
  KeepWhatIsThere();
  pageUrl_ = page.url;
  database_.BeginVisit(page.url);

  // A page that was first seen as a resource of another one is known as that until the disk cache drops it.
  if (toldAsResource_.erase(page.url) != 0 && !page.isFresh(page.url)) CacheStatus(page.url, false);
  CorvaneCmd* const requested = corvane::NewCommand(3, 9);
  corvane::AddText(requested, page.url.c_str());
  corvane::AddText(requested, page.method.c_str());
  corvane::AddText(requested, page.headers.c_str());
  Send(requested);

  CorvaneCmd* const seen = corvane::NewCommand(8, 1);
  corvane::AddText(seen, page.url.c_str());
  corvane::AddText(seen, page.headers.c_str());
  corvane::AddNumber(seen, 0);
  corvane::AddPointer(seen, page.context);
  Send(seen);

  OrderKnown(page);
}

// What waits in the plugin's queue would be launched beside the next page's order for the same URL, and the
// second launch of a URL keeps its slot for ever. A transaction takes its URL out of the queue.
void Corvane::WithdrawWaiting() {
  for (auto& [cookie, order] : orders_) {
    if (order.record->stage == PreloadStage::Ordered) order.transactionId = TransactionStarts(order.url);
  }
  for (auto& [cookie, order] : orders_) {
    if (order.record->stage != PreloadStage::Ordered) continue;
    TransactionDone(order.url, std::exchange(order.transactionId, 0));
  }
}

// Of the last page's orders, when no flush has dropped them: what runs or is held must not be ordered again,
// and what failed has to leave the plugin before it can be.
void Corvane::KeepWhatIsThere() {
  WithdrawWaiting();
  PreloadLedger kept;
  for (auto& [cookie, order] : std::exchange(orders_, {})) {
    const PreloadRecord& record = *order.record;
    const bool isHeld = record.stage == PreloadStage::Held && !record.used;
    if (record.stage != PreloadStage::Launched && !isHeld) {
      plugin_.ReleasePreloaded(order.url.c_str());
      continue;
    }
    order.record = &(kept[order.url] = record);
    orders_.emplace(cookie, std::move(order));
  }
  ledger_ = std::move(kept);
}

void Corvane::ResourceSeen(const std::string& url, ResourceKind kind, const std::string& method) {
  if (url == pageUrl_) return;
  toldAsResource_.insert(url);
  database_.ResourceSeen(url, kind, method == "GET");
  CorvaneCmd* const cmd = corvane::NewCommand(3, 5);
  corvane::AddText(cmd, pageUrl_.c_str());
  corvane::AddText(cmd, url.c_str());
  corvane::AddNumber(cmd, 0);
  corvane::AddNumber(cmd, 1);  // no delayed preload: the browser is about to ask for it itself
  corvane::AddNumber(cmd, 0);
  Send(cmd);
}

void Corvane::ResponseSeen(const std::string& url, const net::HttpResponseHeaders& headers) {
  database_.ResponseSeen(url, headers);
}

uint32_t Corvane::TransactionStarts(const std::string& url) {
  const std::string hostPort = HostPortOf(url);
  if (PreloadRecord* const record = FindRecord(url);
      record != nullptr && record->stage == PreloadStage::Ordered) {
    // It still waits, and not only because transactions of the browser have the sockets.
    record->limitReached =
        neverLaunches_ || preloadsInFlight_[hostPort] > 0 || openTransactions_[hostPort] == 0;
  }
  ++openTransactions_[hostPort];
  const uint32_t id = ++lastTransactionId_;
  CorvaneCmd* const cmd = corvane::NewCommand(9, 1);
  corvane::AddText(cmd, url.c_str());
  corvane::AddNumber(cmd, 0);
  corvane::AddNumber(cmd, id);
  Send(cmd);
  return id;
}

void Corvane::TransactionDone(const std::string& url, uint32_t id) {
  --openTransactions_[HostPortOf(url)];
  CorvaneCmd* const cmd = corvane::NewCommand(9, 4);
  corvane::AddText(cmd, url.c_str());
  corvane::AddNumber(cmd, id);
  Send(cmd);
}

void Corvane::CacheStatus(const std::string& url, bool held) {
  CorvaneCmd* const cmd = corvane::NewCommand(2, 13);
  corvane::AddNumber(cmd, CorvaneHash(url.c_str()));
  corvane::AddNumber(cmd, held ? 1 : 0);
  Send(cmd);
}

void Corvane::PageLeft() {
  database_.EndVisit();
}

void Corvane::Flush() {
  fetcher_.AbandonAll();
  WithdrawWaiting();
  for (auto& [cookie, order] : std::exchange(orders_, {})) {
    if (order.transactionId != 0) TransactionDone(order.url, order.transactionId);
  }
  preloadsInFlight_.clear();
  plugin_.OnFlushDb(0);
}

PreloadRecord* Corvane::FindRecord(const std::string& url) {
  const auto found = ledger_.find(url);
  return found != ledger_.end() ? &found->second : nullptr;
}

bool Corvane::MayAsk(const std::string& url) const {
  const auto order = orders_.find(CorvaneHash(url.c_str()));
  return order == orders_.end() || order->second.url == url;
}

bool Corvane::IsRunning(const std::string& url) const {
  return MayAsk(url) && fetcher_.IsRunning(CorvaneHash(url.c_str()));
}

void Corvane::Join(const std::string& url, FetchJoiner joiner) {
  fetcher_.Join(CorvaneHash(url.c_str()), std::move(joiner));
}

// Called by the plugin, inside OnCmd and with its lock held: nothing may go back to it before OnCmd returns.
int Corvane::Fetch(void* cookie, net::URLRequestContext* /*context*/) {
  const int started = fetcher_.Start(cookie);
  if (started != 0) justLaunched_.push_back(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(cookie)));
  return started;
}

void* Corvane::IoMessageLoop() {
  return networkStackIsUp_ ? &executor_ : nullptr;
}
void* Corvane::HttpCache() {
  return networkStackIsUp_ ? this : nullptr;
}
int Corvane::MaxSocketsPerGroup() {
  return std::max(settings_.socketsPerGroup - settings_.reservedSockets, 1);
}
base::Time Corvane::SystemTime() {
  return executor_.Now();
}
int Corvane::VerboseLevel() {
  return settings_.verboseLevel;
}
bool Corvane::VerboseEnabled() {
  return settings_.verboseLevel > 0;
}

// The delay is counted in milliseconds here.
void Corvane::CommitDelayed(CorvaneCmd* cmd, unsigned int delay) {
  const std::shared_ptr<CorvaneCmd> kept(cmd, corvane::FreeCommand);  // freed even when the task never runs
  executor_.PostDelayed(int64_t{delay} * 1000, [this, kept] {
    ++commandCount_;
    if (plugin_.OnCmd(kept.get()) == 0) ++unansweredCount_;
    AnnounceLaunches();
  });
}

void Corvane::OnFetchTaken(uint32_t cookie, TransferId transfer) {
  const auto order = orders_.find(cookie);
  if (order != orders_.end()) order->second.record->transfer = transfer;
}

void Corvane::OnFetchResponse(uint32_t cookie, const net::HttpResponseHeaders& headers, bool accepted) {
  const auto order = orders_.find(cookie);
  if (order == orders_.end()) return;
  database_.ResponseSeen(order->second.url, headers);
  PreloadRecord& record = *order->second.record;
  record.status = headers.response_code();
  record.declaredLength = headers.GetContentLength();
  record.html = headers.raw_headers().find("text/html") != std::string::npos;
  record.cancelled = !accepted;
}

void Corvane::OnFetchEnded(uint32_t cookie, int32_t result) {
  const auto place = orders_.find(cookie);
  if (place == orders_.end()) return;
  Order& order = place->second;
  --preloadsInFlight_[order.hostPort];
  PreloadRecord& record = *order.record;
  const bool held = result == kOk && !record.cancelled && record.status == 200 && record.declaredLength != 0;
  record.stage = held ? PreloadStage::Held : PreloadStage::Failed;
  record.ended = executor_.Now();
  // FetchDone freed a slot but started nothing: either command has the plugin look for what can go next.
  if (const uint32_t id = std::exchange(order.transactionId, 0); id != 0) {
    TransactionDone(order.url, id);
  } else {
    Send(corvane::NewCommand(8, 4));
  }
}

void Corvane::Send(CorvaneCmd* cmd) {
  const std::unique_ptr<CorvaneCmd, decltype(&corvane::FreeCommand)> owned(cmd, corvane::FreeCommand);
  if (!pluginIsOn_ || (mask_ >> cmd->type & 1U) == 0) return;
  ++commandCount_;
  if (plugin_.OnCmd(cmd) == 0) ++unansweredCount_;
  AnnounceLaunches();
}

// Before the next command: its pass over the hosts would drop a host that has neither queue nor transactions.
void Corvane::AnnounceLaunches() {
  for (const uint32_t cookie : std::exchange(justLaunched_, {})) {
    const auto place = orders_.find(cookie);
    if (place == orders_.end()) continue;  // the plugin's own order: the bypass command
    Order& order = place->second;
    ++preloadsInFlight_[order.hostPort];
    order.record->stage = PreloadStage::Launched;
    order.record->launched = executor_.Now();
    if (settings_.announcePreloads) order.transactionId = TransactionStarts(order.url);
  }
}

NotOrdered Corvane::WhyNotOrder(const KnownPage& page, const KnownResource& resource,
                                const PageRequest& request) const {
  if (!pluginIsOn_ || plugin_.IsPreloaderEnabled() == 0) return NotOrdered::SwitchedOff;
  if (!resource.get) return NotOrdered::NotGet;
  if (request.isFresh(resource.url)) return NotOrdered::FreshInDiskCache;
  if (resource.visitsSeen < settings_.minSeenShare * page.visits) return NotOrdered::SeenTooSeldom;
  if (resource.status != 200) return NotOrdered::StatusNot200;
  if (resource.html) return NotOrdered::Html;
  if (resource.declaredLength < 0) return NotOrdered::NoDeclaredLength;
  if (resource.declaredLength == 0) return NotOrdered::EmptyBody;
  if (static_cast<uint64_t>(resource.declaredLength) > sizeLimit_) return NotOrdered::OverSizeLimit;
  if (request.context == nullptr || request.method != "GET") return NotOrdered::NoContext;
  const auto sameHash = orders_.find(CorvaneHash(resource.url.c_str()));
  if (sameHash != orders_.end()) return NotOrdered::SharesHash;
  return NotOrdered::None;
}

void Corvane::OrderKnown(const PageRequest& request) {
  const KnownPage* const page = database_.Find(request.url);
  if (page == nullptr) return;
  std::vector<std::pair<uint32_t, PreloadRecord*>> wanted;
  for (size_t position = 0; position < page->resources.size(); ++position) {
    const KnownResource& resource = page->resources[position];
    if (ledger_.contains(resource.url)) continue;  // ordered on the last page, and still there
    PreloadRecord& record = ledger_[resource.url];
    record.url = resource.url;
    record.kind = resource.kind;
    record.notOrdered = WhyNotOrder(*page, resource, request);
    if (record.notOrdered != NotOrdered::None) continue;
    orders_[CorvaneHash(record.url.c_str())] = {record.url, HostPortOf(record.url), &record};
    wanted.emplace_back(Priority(record.kind, position), &record);
  }
  std::stable_sort(wanted.begin(), wanted.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [priority, record] : wanted) SendOrder(*record, priority);
}

void Corvane::SendOrder(PreloadRecord& record, uint32_t priority) {
  record.stage = PreloadStage::Ordered;
  record.ordered = executor_.Now();
  CorvaneCmd* const cmd = corvane::NewCommand(8, 21);
  corvane::AddNumber(cmd, priority);
  corvane::AddText(cmd, record.url.c_str());
  corvane::AddNumber(cmd, CorvaneHash(pageUrl_.c_str()));
  corvane::AddNumber(cmd, kPreloadLoadFlags);
  Send(cmd);
}

}  // namespace host
