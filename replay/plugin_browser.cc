#include "replay/plugin_browser.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <utility>

#include "android/log.h"
#include "replay/content.h"
#include "replay/page_load.h"

namespace replay {
namespace {

// Where the plugin's log goes. The sink is a plain function, so what it writes to is process-wide.
struct Log {
  const VirtualClock* clock = nullptr;
  bool keep = false;
  uint64_t warnings = 0;
  std::vector<std::string> lines;
};
Log g_log;

// "01-01 00:00:12.345     1     1 D text": month and day, time, process, thread, priority. The clock starts
// with a year that is no leap year.
std::string ThreadTime(int64_t nowUs, int priority, const char* text) {
  constexpr std::string_view kPriorities = "??VDIWE";
  const std::chrono::sys_time<std::chrono::milliseconds> now(std::chrono::milliseconds(nowUs / 1000));
  const auto day = std::chrono::floor<std::chrono::days>(now);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(now - day);
  char stamp[64];
  std::snprintf(stamp, sizeof stamp, "%02u-%02u %02d:%02d:%02d.%03d %5d %5d %c ", unsigned{date.month()},
                unsigned{date.day()}, static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                static_cast<int>(time.subseconds().count()), 1, 1,
                priority >= 0 && priority < 7 ? kPriorities[static_cast<size_t>(priority)] : '?');
  return std::string(stamp) + text;
}

void WriteLog(int /*bufferId*/, int priority, const char* /*tag*/, const char* text) {
  if (priority >= ANDROID_LOG_WARN) ++g_log.warnings;
  if (g_log.keep) g_log.lines.push_back(ThreadTime(g_log.clock->NowUs(), priority, text));
}

WhyNot WhyNotOrdered(host::NotOrdered why) {
  switch (why) {
    case host::NotOrdered::None:
      break;
    case host::NotOrdered::SwitchedOff:
      return WhyNot::SwitchedOff;
    case host::NotOrdered::SeenTooSeldom:
      return WhyNot::SeenTooSeldom;
    case host::NotOrdered::FreshInDiskCache:
      return WhyNot::FreshInDiskCache;
    case host::NotOrdered::NotGet:
      return WhyNot::NotGet;
    case host::NotOrdered::Html:
      return WhyNot::Html;
    case host::NotOrdered::StatusNot200:
      return WhyNot::StatusNot200;
    case host::NotOrdered::NoDeclaredLength:
      return WhyNot::NoDeclaredLength;
    case host::NotOrdered::OverSizeLimit:
      return WhyNot::OverSizeLimit;
    case host::NotOrdered::EmptyBody:
      return WhyNot::EmptyBody;
    case host::NotOrdered::NoContext:
      return WhyNot::NoContext;
    case host::NotOrdered::SharesHash:
      return WhyNot::SharesHash;
  }
  return WhyNot::None;
}

// What the host told the plugin of a response that it did not keep.
WhyNot WhyNotKept(const host::PreloadRecord& record) {
  if (record.cancelled) return record.declaredLength < 0 ? WhyNot::NoDeclaredLength : WhyNot::OverSizeLimit;
  if (record.html) return WhyNot::Html;
  return record.status != 200 && record.status >= 0 ? WhyNot::StatusNot200 : WhyNot::Failed;
}

PreloadFate FateOf(const host::PreloadRecord& record) {
  if (record.joined) return PreloadFate::Joined;
  if (record.used) return PreloadFate::Served;
  if (record.stage == host::PreloadStage::Failed) {
    return record.cancelled ? PreloadFate::Cancelled : PreloadFate::Failed;
  }
  return PreloadFate::Wasted;
}

}  // namespace

WhyNot WhyNotServed(const host::PreloadRecord* record) {
  if (record == nullptr) return WhyNot::NotKnownYet;
  if (record->notOrdered == host::NotOrdered::FreshInDiskCache)
    return WhyNot::WentStale;  // else nobody asks here
  if (record->notOrdered != host::NotOrdered::None) return WhyNotOrdered(record->notOrdered);
  if (record->used || record->joined) return WhyNot::UsedUp;
  switch (record->stage) {
    case host::PreloadStage::Ordered:
      return record->limitReached ? WhyNot::LimitReached : WhyNot::BrowserAskedFirst;
    case host::PreloadStage::Launched:
      return WhyNot::StillRunning;
    case host::PreloadStage::NotOrdered:
    case host::PreloadStage::Held:
    case host::PreloadStage::Failed:
      return WhyNotKept(*record);
  }
  return WhyNot::Failed;
}

// Answers one request of the page.
class PluginBrowser::Client final : public host::LoadClient {
 public:
  Client(PluginBrowser& browser, size_t index) : browser_(browser), index_(index) {}

  void Start() {
    const Request& request = Wanted();
    RequestRow& row = browser_.load_->Row(index_);
    const bool isResource = index_ > browser_.setup_->page.document;
    const host::Load load = browser_.stack_.Start(
        {.url = request.url, .method = request.method, .headers = request.requestHeaders, .tag = index_ + 1},
        *this);
    transfer_ = load.transfer;
    switch (load.source) {
      case host::LoadSource::Served:
        row.source = Source::Served;
        return;
      case host::LoadSource::Joined:
        row.source = Source::Joined;
        row.why = WhyNot::StillRunning;
        return;
      case host::LoadSource::Network:
        break;
    }
    row.source = Source::Network;
    if (!isResource) return;
    row.why =
        request.method == "GET" ? WhyNotServed(browser_.corvane_.FindRecord(request.url)) : WhyNot::NotGet;
  }

  void OnResponse(const net::HttpResponseHeaders& /*headers*/) override { browser_.load_->FirstByte(index_); }

  void OnPreloadedBody(const std::string& headers, const std::string& body) override {
    const Request* const fetched = FindRecorded(*browser_.setup_, {.url = Wanted().url, .method = "GET"});
    const bool same = fetched != nullptr && headers == fetched->responseHeaders &&
                      static_cast<int64_t>(body.size()) == fetched->bodyBytes &&
                      IsContent(ContentSeed(fetched->url, browser_.contentVersion_), body);
    if (!same)
      throw std::runtime_error("what the plugin served for " + Wanted().url + " is not what was fetched");
  }

  void OnDone(int32_t /*result*/) override {
    if (transfer_ != 0) {
      const TransferTimes& times = browser_.network_.Times(transfer_);
      RequestRow& row = browser_.load_->Row(index_);
      row.connectUs = times.connectUs;
      row.sentUs = times.sentUs;
    }
    if (browser_.diskCache_.Store(Wanted(), browser_.clock_.NowUs())) {
      browser_.corvane_.CacheStatus(Wanted().url, true);
    }
    browser_.load_->Done(index_);
  }

 private:
  const Request& Wanted() const { return browser_.setup_->page.requests[index_]; }

  PluginBrowser& browser_;
  const size_t index_;
  host::TransferId transfer_ = 0;
};

PluginBrowser::PluginBrowser(const host::PluginFunctions& plugin, const RecordedNetwork& recordedNetwork,
                             const ReplayOptions& options, const host::HostSettings& settings)
    : network_(clock_, options.profile, recordedNetwork, settings,
               [this](const host::TransferRequest& request) { return FindRecorded(*setup_, request); }),
      corvane_(plugin, clock_, network_, settings),
      stack_(corvane_, clock_, network_) {
  g_log = {.clock = &clock_, .keep = options.logLevel.has_value()};
  android_log::SetSink(WriteLog);
  corvane_.Start();
  corvane_.NetworkStackIsUp();
}

PluginBrowser::~PluginBrowser() {
  android_log::SetSink(nullptr);
  g_log = {};
}

std::vector<std::string> PluginBrowser::TakeLog() {
  return std::exchange(g_log.lines, {});
}

void PluginBrowser::Ask(size_t index) {
  const Request& request = setup_->page.requests[index];
  if (index > setup_->page.document) corvane_.ResourceSeen(request.url, request.kind, request.method);
  if (request.method == "GET" && diskCache_.IsFresh(request.url, clock_.NowUs())) {
    // The disk cache has a fresh copy, so the plugin may drop its own.
    corvane_.Plugin().IsInDC(request.url.c_str());
    RequestRow& row = load_->Row(index);
    row.source = Source::DiskCache;
    if (index > setup_->page.document) row.why = WhyNot::FreshInDiskCache;
    load_->AnswerAtOnce(index);
    return;
  }
  clients_.push_back(std::make_unique<Client>(*this, index));
  clients_.back()->Start();
}

void PluginBrowser::Load(const VisitSetup& setup, Visit& visit) {
  network_.Reset(++contentVersion_);
  const uint64_t commandsBefore = corvane_.CommandCount();
  const uint64_t unansweredBefore = corvane_.UnansweredCount();
  const uint64_t warningsBefore = g_log.warnings;
  setup_ = &setup;
  PageLoad load(clock_, setup.plan, [this](size_t index) { Ask(index); });
  load_ = &load;

  const Request& navigation = setup.page.requests.front();
  load.Begin();
  corvane_.PageRequested(
      {.url = navigation.url,
       .method = navigation.method,
       .headers = navigation.requestHeaders,
       .context = &context_,
       .isFresh = [this](const std::string& url) { return diskCache_.IsFresh(url, clock_.NowUs()); }});
  clock_.Run();
  corvane_.PageLeft();

  WayResult& way = visit.ways[static_cast<size_t>(Way::Plugin)];
  way = load.Finish();
  way.preloads = PreloadRows(load.StartUs());
  visit.commands = corvane_.CommandCount() - commandsBefore;
  visit.unansweredCommands = corvane_.UnansweredCount() - unansweredBefore;
  visit.warnings = g_log.warnings - warningsBefore;
  Count(visit);
  clients_.clear();
  load_ = nullptr;
}

std::vector<PreloadRow> PluginBrowser::PreloadRows(int64_t startUs) const {
  std::vector<PreloadRow> rows;
  for (const auto& [url, record] : corvane_.Ledger()) {
    if (record.stage < host::PreloadStage::Launched) continue;
    PreloadRow row;
    row.url = url;
    row.kind = record.kind;
    row.fate = FateOf(record);
    row.orderedUs = record.ordered.ToInternalValue() - startUs;
    row.launchedUs = record.launched.ToInternalValue() - startUs;
    row.connectUs = row.sentUs = row.firstByteUs = row.endUs = row.launchedUs;
    if (record.transfer != 0) {
      const TransferTimes& times = network_.Times(record.transfer);
      const auto relative = [startUs](int64_t timeUs, int64_t fallback) {
        return timeUs >= 0 ? timeUs - startUs : fallback;
      };
      row.endUs = relative(times.endUs, row.launchedUs);
      row.connectUs = relative(times.connectUs, row.endUs);
      row.sentUs = relative(times.sentUs, row.endUs);
      row.firstByteUs = relative(times.firstByteUs, row.endUs);
      row.bytes = times.bytes;
    }
    rows.push_back(std::move(row));
  }
  std::stable_sort(rows.begin(), rows.end(),
                   [](const PreloadRow& a, const PreloadRow& b) { return a.launchedUs < b.launchedUs; });
  return rows;
}

void PluginBrowser::Count(Visit& visit) const {
  const WayResult& way = visit.ways[static_cast<size_t>(Way::Plugin)];
  for (const RequestRow& row : way.requests) {
    if (row.request <= setup_->page.document) continue;
    switch (row.source) {
      case Source::Served:
        ++visit.served;
        break;
      case Source::Joined:
        ++visit.joined;
        break;
      case Source::Network:
        ++visit.fetched;
        break;
      case Source::DiskCache:
        ++visit.fromDiskCache;
        break;
      case Source::Memory:
        break;
    }
  }
  for (const PreloadRow& preload : way.preloads) {
    const auto bytes = static_cast<uint64_t>(preload.bytes);
    visit.preloadedBytes += bytes;
    if (preload.fate != PreloadFate::Served && preload.fate != PreloadFate::Joined)
      visit.wastedBytes += bytes;
  }
}

}  // namespace replay
