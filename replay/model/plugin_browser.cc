#include "replay/model/plugin_browser.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <utility>

#include "android/log.h"
#include "host/http/conditions.h"
#include "replay/model/content.h"
#include "replay/model/page_load.h"

namespace replay {
namespace {

// The destination of the plugin's log. The sink is a plain function, so the destination is process-wide.
struct Log {
  const host::VirtualClock* clock = nullptr;
  bool keep = false;
  uint64_t warnings = 0;
  std::vector<LogLine> lines;
};
Log g_log;

// "01-01 00:00:12.345     1     1 D ": month and day, time, process, thread, priority. The clock starts with
// a year that is not a leap year.
std::string ThreadTime(int64_t nowUs, int priority) {
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
  return stamp;
}

void WriteLog(int /*bufferId*/, int priority, const char* /*tag*/, const char* text) {
  if (priority >= ANDROID_LOG_WARN) ++g_log.warnings;
  if (!g_log.keep) return;
  const int64_t nowUs = g_log.clock->NowUs();
  g_log.lines.push_back({.atUs = nowUs, .stamp = ThreadTime(nowUs, priority), .text = text});
}

PreloadFate FateOf(const host::PreloadRecord& record) {
  if (record.used) return record.joined ? PreloadFate::Joined : PreloadFate::Served;
  if (record.stage == host::PreloadStage::Failed) {
    return record.refused ? PreloadFate::Cancelled : PreloadFate::Failed;
  }
  return PreloadFate::Unused;
}

}  // namespace

// Answers one request of the page.
class PluginBrowser::Client final : public host::LoadClient {
 public:
  Client(PluginBrowser& browser, size_t index) : browser_(browser), index_(index) {}

  void Start() {
    const Request& request = Wanted();
    browser_.stack_.Start({.tab = kTab,
                           .url = request.url,
                           .method = request.method,
                           .headers = browser_.cookies_.SentWith(request),
                           .context = &browser_.cookies_,
                           .requestId = index_ + 1},
                          *this);
  }

  void OnResponse(const host::LoadInfo& info, const net::HttpResponseHeaders& headers) override {
    if (info.source != host::LoadSource::Network) {
      fetched_ = FindRecorded(*browser_.setup_, {.url = Wanted().url, .method = "GET"});
      isSame_ = fetched_ != nullptr && headers.raw_headers() == fetched_->responseHeaders;
      if (fetched_ != nullptr) seed_ = ContentSeed(fetched_->url, browser_.contentVersion_);
      isConfirmed_ = headers.response_code() == 304;
    }
    browser_.load_->FirstByte(index_);
  }

  void OnBody(const char* bytes, int32_t count) override {
    if (fetched_ == nullptr) return;
    body_.append(bytes, static_cast<size_t>(count));
  }

  void OnDone(const host::LoadInfo& info, int32_t /*result*/, const host::TransferReport& report) override {
    RequestRow& row = browser_.load_->Row(index_);
    switch (info.source) {
      case host::LoadSource::Served:
        row.source = Source::Served;
        break;
      case host::LoadSource::Joined:
        row.source = Source::Joined;
        row.why = info.why;
        break;
      case host::LoadSource::Network:
        row.source = Source::Network;
        row.connectUs = report.connect.ToInternalValue();
        row.sentUs = report.sent.ToInternalValue();
        if (index_ > browser_.setup_->page.document) row.why = info.why;
        break;
    }
    CheckBody(info);
    browser_.cookies_.ResponseSeen(Wanted());
    if (browser_.diskCache_.Store(Wanted(), browser_.clock_.NowUs())) {
      browser_.corvane_.CacheStatus(Wanted().url, true);
    }
    browser_.load_->Done(index_);
  }

 private:
  const Request& Wanted() const { return browser_.setup_->page.requests[index_]; }

  // Checks that the preloaded response is the one that answered the fetch.
  void CheckBody(const host::LoadInfo& info) const {
    if (info.source == host::LoadSource::Network) return;
    // A conditional request gets no body if the stored copy is still valid.
    if (isConfirmed_ && body_.empty() && http::IsConditional(Wanted().requestHeaders)) return;
    const bool same =
        isSame_ && static_cast<int64_t>(body_.size()) == fetched_->bodyBytes && IsContent(seed_, body_);
    if (!same) {
      throw std::runtime_error("the preloaded body of " + Wanted().url + " is not the one that was fetched");
    }
  }

  PluginBrowser& browser_;
  const size_t index_;
  const Request* fetched_ = nullptr;  // what answered the preload
  bool isSame_ = false;               // the header block is
  bool isConfirmed_ = false;          // answered with 304
  uint64_t seed_ = 0;
  std::string body_;
};

PluginBrowser::PluginBrowser(const host::PluginFunctions& plugin, const RecordedNetwork& recordedNetwork,
                             const ReplayOptions& options, const host::HostSettings& settings)
    : network_(clock_, options.profile, options.costs, recordedNetwork, settings,
               [this](const host::TransferRequest& request) { return FindRecorded(*setup_, request); }),
      corvane_(plugin, clock_, network_, settings),
      stack_(corvane_, clock_, network_),
      cookies_([this](const std::string& url) {
        const auto found = setup_->pageIndex.find(url);
        return found != setup_->pageIndex.end() ? found->second : nullptr;
      }) {
  g_log = {.clock = &clock_, .keep = options.logLevel.has_value()};
  android_log::SetSink(WriteLog);
  corvane_.Start();
  corvane_.NetworkStackIsUp();
}

PluginBrowser::~PluginBrowser() {
  android_log::SetSink(nullptr);
  g_log = {};
}

std::vector<LogLine> PluginBrowser::TakeLog() {
  return std::exchange(g_log.lines, {});
}

void PluginBrowser::Ask(size_t index) {
  const Request& request = setup_->page.requests[index];
  if (index > setup_->page.document) {
    corvane_.ResourceSeen(kTab, {.url = request.url,
                                 .kind = request.kind,
                                 .method = request.method,
                                 .headers = cookies_.SentWith(request)});
  }
  if (request.method == "GET" && diskCache_.IsFresh(request.url, clock_.NowUs())) {
    corvane_.AnsweredByCache(kTab, request.url);
    RequestRow& row = load_->Row(index);
    row.source = Source::DiskCache;
    if (index > setup_->page.document) row.why = host::NotServed::FreshInDiskCache;
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
  load.onLoad = [this] { corvane_.LoadEvent(kTab); };
  load_ = &load;

  const Request& navigation = setup.page.requests.front();
  load.Begin();
  corvane_.PageRequested(
      {.tab = kTab,
       .url = navigation.url,
       .method = navigation.method,
       .headers = navigation.requestHeaders,
       .context = &cookies_,
       .isFresh = [this](const std::string& url) { return diskCache_.IsFresh(url, clock_.NowUs()); }});
  clock_.Run();
  corvane_.PageLeft(kTab);

  visit.startUs = load.StartUs();
  WayResult& way = visit.ways[Index(Way::Plugin)];
  way = load.Finish();
  way.connections = network_.Connections();
  way.preloads = PreloadRows(load.StartUs());
  way.unusedConnections = network_.UnusedConnections();
  visit.commands = corvane_.CommandCount() - commandsBefore;
  visit.unansweredCommands = corvane_.UnansweredCount() - unansweredBefore;
  visit.warnings = g_log.warnings - warningsBefore;
  Count(visit);
  clients_.clear();
  load_ = nullptr;
}

std::vector<PreloadRow> PluginBrowser::PreloadRows(int64_t startUs) const {
  std::vector<PreloadRow> rows;
  for (const auto& [url, record] : corvane_.Ledger(kTab)) {
    if (record.launched == base::Time()) continue;
    PreloadRow row;
    row.url = url;
    row.kind = record.kind;
    row.fate = FateOf(record);
    row.orderedUs = record.ordered.ToInternalValue() - startUs;
    row.launchedUs = record.launched.ToInternalValue() - startUs;
    row.connectUs = row.sentUs = row.firstByteUs = row.endUs = row.launchedUs;
    const host::TransferReport& transfer = record.transfer;
    const auto relative = [startUs](base::Time time, int64_t fallback) {
      return time != base::Time() ? time.ToInternalValue() - startUs : fallback;
    };
    row.endUs = relative(transfer.ended, row.launchedUs);
    row.connectUs = relative(transfer.connect, row.endUs);
    row.sentUs = relative(transfer.sent, row.endUs);
    row.firstByteUs = relative(transfer.firstByte, row.endUs);
    row.bytes = transfer.bodyBytes;
    rows.push_back(std::move(row));
  }
  std::stable_sort(rows.begin(), rows.end(),
                   [](const PreloadRow& a, const PreloadRow& b) { return a.launchedUs < b.launchedUs; });
  return rows;
}

void PluginBrowser::Count(Visit& visit) const {
  const WayResult& way = visit.ways[Index(Way::Plugin)];
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
      visit.unusedBytes += bytes;
  }
}

}  // namespace replay
