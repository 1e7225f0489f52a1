// Random sessions of the whole host with the real plugin: tabs, pages, loads, clients that act from inside
// their callbacks, servers that lie about lengths, stall and fail, changes by POST, and ends of everything at
// any moment. The servers write into each body what it answers, so that a load can tell whether it got what
// it may. KIV_SESSIONS sets how many sessions are run, KIV_SESSION the first of them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "android/log.h"
#include "host/corvane_runtime.h"
#include "host/http/header_block.h"
#include "host/network_stack.h"
#include "host/virtual_clock.h"
#include "plugin/properties.h"
#include "tests/support/scripted_transport.h"

namespace host {
namespace {

using Random = std::mt19937;

constexpr int kTabs = 3, kPages = 4, kResources = 12;
constexpr int64_t kSecond = 1'000'000;

std::string UrlOf(int resource) {
  return "http://s" + std::to_string(resource % 3) + ".test/" + std::to_string(resource);
}

std::string HeaderOf(const std::string& headers, const char* name) {
  return std::string(http::FindHeader(headers, name).value_or(""));
}

// What a body says of itself.
struct Origin {
  std::string url, language, cookie;
  int version = 0;
  int64_t sentUs = 0;
  bool honest = true;  // the length that was declared, if any, is its own

  std::string Write() const {
    std::ostringstream text;
    text << url << " " << language << "." << cookie << ". " << version << " " << sentUs << " " << honest
         << " ";
    return text.str() + std::string(static_cast<size_t>(version) * 700 % 3000, 'x');
  }
  static Origin Read(const std::string& body) {
    Origin origin;
    std::string sender;
    std::istringstream(body) >> origin.url >> sender >> origin.version >> origin.sentUs >> origin.honest;
    origin.language = sender.substr(0, sender.find('.'));
    origin.cookie = sender.substr(sender.find('.') + 1);
    origin.cookie = origin.cookie.substr(0, origin.cookie.find('.'));
    return origin;
  }
};

// Servers and network. A POST raises the version of its URL.
class LyingTransport final : public Transport {
 public:
  LyingTransport(VirtualClock& clock, Random& random) : clock_(clock), random_(random) {}

  std::map<std::string, int> versions;

  std::set<const net::URLRequestContext*> contexts = {nullptr};  // that are alive

  TransferId Start(const TransferRequest& request, TransferClient& client) override {
    EXPECT_TRUE(contexts.contains(request.context)) << "of a page that is gone: " << request.url;
    const TransferId id = ++lastId_;
    transfers_[id] = {request, &client, clock_.NowUs()};
    Later(id, 800, [this, id] { Respond(id); });
    return id;
  }
  void SetUrgency(TransferId, Urgency) override {}
  void SetReading(TransferId id, bool reading) override {
    const auto found = transfers_.find(id);
    if (found == transfers_.end() || std::exchange(found->second.reading, reading) || !reading) return;
    Later(id, 10, [this, id] { Send(id); });
  }
  TransferReport Cancel(TransferId id) override { return transfers_.erase(id), TransferReport(); }
  void Preconnect(const std::string&, size_t, net::URLRequestContext*) override {}

 private:
  struct Transfer {
    TransferRequest request;
    TransferClient* client;
    int64_t sentUs;
    std::string left;
    int32_t result = kOk;
    bool reading = true;
    bool stalls = false;
  };

  int Draw(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }

  void Later(TransferId id, int mostMs, std::function<void()> task) {
    clock_.PostDelayed(Draw(mostMs) * 1000, [this, id, task = std::move(task)] {
      if (transfers_.contains(id)) task();
    });
  }

  void Respond(TransferId id) {
    Transfer& transfer = transfers_.at(id);
    const TransferRequest& request = transfer.request;
    const int mood = Draw(40);
    if (mood == 0) return;  // never answers
    if (mood == 1) return Done(id, kConnectionFailed);
    int& version = versions[request.url];
    if (request.method == "POST" && mood != 4) ++version;
    Origin origin = {request.url, HeaderOf(request.headers, "Accept-Language"),
                     HeaderOf(request.headers, "Cookie"), version, transfer.sentUs};
    origin.honest = mood != 2 && mood != 3;
    transfer.left = origin.Write();
    size_t declared = transfer.left.size();
    if (mood == 2) declared += 1 + static_cast<size_t>(Draw(100));
    if (mood == 3) declared -= 1 + static_cast<size_t>(Draw(20));
    std::string lines = mood == 4 ? "404 Not Found" : mood == 5 ? "302 Found" : "200 OK";
    if (mood != 6) lines += "\nContent-Length: " + std::to_string(declared);
    if (mood == 7) lines += "\nContent-Type: text/html";
    if (mood == 8) lines += "\nContent-Length: 0", transfer.left.clear();
    if (mood == 9) transfer.result = kConnectionClosed, transfer.left.resize(transfer.left.size() / 2);
    if (mood == 10) transfer.stalls = true;
    if (request.method == "POST") lines += "\nContent-Location: " + UrlOf(Draw(kResources));
    lines += "\nVary: Accept-Language\nETag: \"" + std::to_string(version) + "\"";
    Later(id, 100, [this, id] { Send(id); });
    transfer.client->OnResponse(tests::ResponseHeaders("HTTP/1.1 " + lines));
  }

  void Send(TransferId id) {
    Transfer& transfer = transfers_.at(id);
    if (!transfer.reading) return;
    if (transfer.left.empty()) return Done(id, transfer.result);
    const size_t count = std::min(transfer.left.size(), 1 + static_cast<size_t>(Draw(1500)));
    const std::string piece = transfer.left.substr(0, count);
    transfer.left.erase(0, count);
    if (!transfer.stalls) Later(id, 100, [this, id] { Send(id); });
    transfer.client->OnBody(piece.data(), static_cast<int32_t>(count));
  }

  void Done(TransferId id, int32_t result) {
    TransferClient* const client = transfers_.at(id).client;
    transfers_.erase(id);
    client->OnDone(result, {});
  }

  VirtualClock& clock_;
  Random& random_;
  TransferId lastId_ = 0;
  std::map<TransferId, Transfer> transfers_;
};

// The context of one page. It is gone as soon as the page is.
struct CookieJar : net::URLRequestContext {
  explicit CookieJar(LyingTransport& owner) : transport(owner) { transport.contexts.insert(this); }
  ~CookieJar() { transport.contexts.erase(this); }

  LyingTransport& transport;
  std::string cookies;

  std::string CookiesFor(const std::string& /*url*/) override { return cookies; }
};

class Session {
 public:
  Session(const PluginFunctions& plugin, unsigned seed) : plugin_(plugin), random_(seed) {
    settings_.joinRunning = Draw(6) != 0;
    settings_.joinPatienceMs = 500;
    settings_.fetchPatienceMs = 2000;
    settings_.settleAfterMs = 3000;
    settings_.maxPages = 2 + Draw(4);
    settings_.maxResourcesPerPage = 8;
    settings_.maxToldResources = 10;
    MakeHost();
  }

  void Run() {
    for (int step = 0; step < 60; ++step) clock_.PostDelayed(Draw(40'000) * 1000, [this] { Act(3); });
    clock_.Run();
    EXPECT_GT(complete_, 0);
    stack_.reset();
    corvane_.reset();
    for (int resource = 0; resource < kResources; ++resource) {
      EXPECT_EQ(plugin_.IsInDC(UrlOf(resource).c_str()) + plugin_.ReleasePreloaded(UrlOf(resource).c_str()),
                0)
          << "left behind in the plugin";
    }
  }

  int Preloaded() const { return preloaded_; }

 private:
  struct Load final : LoadClient {
    Session* session;
    TabId tab = 0;
    std::string url, method, headers;
    int version = 0;             // that the URL had when the load began
    int64_t pageUs = 0;          // when the page of its tab was requested
    bool mayBePreloaded = true;  // by its headers
    LoadId id = 0;
    std::string body;
    int status = -1;
    bool over = false;

    void OnResponse(const LoadInfo& info, const net::HttpResponseHeaders& response) override {
      EXPECT_FALSE(over || status != -1);
      EXPECT_TRUE(mayBePreloaded || info.source == LoadSource::Network) << headers;
      status = response.response_code();
      session->Act(1);
    }
    void OnBody(const char* bytes, int32_t count) override {
      EXPECT_FALSE(over);
      body.append(bytes, static_cast<size_t>(count));
      session->Act(1);
    }
    void OnDone(const LoadInfo& info, int32_t result, const TransferReport&) override {
      EXPECT_FALSE(over);
      over = true;
      if (result == kOk) Check(info);
      session->Act(1);
    }
    void Check(const LoadInfo& info) {
      ++session->complete_;
      session->preloaded_ += info.source != LoadSource::Network ? 1 : 0;
      if (status == 304) {
        const std::string tag = HeaderOf(headers, "If-None-Match");
        const int answered = tag.empty() ? -1 : std::stoi(tag.substr(1));
        EXPECT_TRUE(answered >= version && answered <= session->transport_.versions[url]) << tag;
        return;
      }
      if (body.empty()) return;
      const Origin origin = Origin::Read(body);
      EXPECT_EQ(origin.url, url);
      EXPECT_EQ(origin.language, HeaderOf(headers, "Accept-Language"));
      EXPECT_EQ(origin.cookie, HeaderOf(headers, "Cookie"));
      EXPECT_GE(origin.version, version) << "it was changed before the load began";
      EXPECT_GE(origin.sentUs, pageUs) << "it was fetched for an earlier page";
      EXPECT_TRUE(origin.honest || info.source == LoadSource::Network) << "not the declared length";
      EXPECT_TRUE(!origin.honest || origin.Write() == body) << "not the whole body";
    }
  };

  int Draw(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }

  void MakeHost() {
    corvane_.emplace(plugin_, clock_, transport_, settings_);
    stack_.emplace(*corvane_, clock_, transport_);
    corvane_->Start();
    if (Draw(3) != 0) corvane_->NetworkStackIsUp();
  }

  // Something that the browser or its user might do; up to `most` things, and from inside callbacks mostly
  // none.
  void Act(int most) {
    if (depth_ > 3 || !stack_ || (most == 1 && Draw(8) != 0)) return;
    ++depth_;
    for (int i = 0; i < 1 + Draw(most) && stack_; ++i) ActOnce();
    --depth_;
  }

  void ActOnce() {
    const TabId tab = static_cast<TabId>(Draw(kTabs));
    const int what = Draw(100);
    if (what < 12) return RequestPage(tab);
    if (what < 60) return StartLoad(tab);
    if (what < 85) return EndLoad();
    if (what < 90 && !loads_.empty()) return stack_->SetReading(AnyLoad().id, Draw(2) != 0);
    if (what < 94)
      return what < 92 ? corvane_->TabClosed(tab) : corvane_->PageLeft(tab), void(jars_.erase(tab));
    if (what < 95) return corvane_->SettleIdlePages();
    if (what < 97 && jars_.contains(tab)) jars_[tab]->cookies = AnyCookies();
    if (what == 97) corvane_->NetworkStackIsUp();
    if (what == 98) corvane_->AnsweredByCache(tab, UrlOf(Draw(kResources)));
    if (what == 99 && Draw(4) == 0) EndHost();
  }

  std::string AnyCookies() { return Draw(2) != 0 ? "c=" + std::to_string(Draw(3)) : ""; }

  void RequestPage(TabId tab) {
    pageUs_[tab] = clock_.NowUs();
    const int page = Draw(kPages);
    const auto last = std::exchange(jars_[tab], std::make_unique<CookieJar>(transport_));
    jars_[tab]->cookies = AnyCookies();
    corvane_->PageRequested({.tab = tab,
                             .url = "http://page.test/" + std::to_string(page),
                             .context = Draw(10) != 0 ? jars_[tab].get() : nullptr,
                             .isFresh = [](const std::string& url) { return url.ends_with("7"); }});
    for (int i = 0; i < 6; ++i) {
      clock_.PostDelayed(Draw(3000) * 1000, [this, tab, resource = (2 * page + i) % kResources] {
        if (stack_) StartLoadOf(tab, UrlOf(resource));
      });
    }
  }

  void StartLoad(TabId tab) { StartLoadOf(tab, UrlOf(Draw(kResources))); }

  void StartLoadOf(TabId tab, const std::string& url) {
    Load& load = loads_.emplace_back();
    load.session = this;
    load.tab = tab;
    load.url = url;
    load.method = Draw(25) == 0 ? "POST" : "GET";
    load.headers = Draw(12) == 0 ? "Accept-Language: de\r\n" : "Accept-Language: en\r\n";
    const std::string cookies = jars_.contains(tab) ? jars_[tab]->cookies : "";
    if (!cookies.empty()) load.headers += "Cookie: " + cookies + "\r\n";
    load.version = transport_.versions[url];
    load.pageUs = pageUs_[tab];
    if (Draw(15) == 0) load.headers += "If-None-Match: \"" + std::to_string(Draw(4)) + "\"\r\n";
    if (Draw(30) == 0) load.headers += "Range: bytes=0-5\r\n", load.mayBePreloaded = false;
    if (Draw(30) == 0) load.headers += "Cache-Control: no-cache\r\n", load.mayBePreloaded = false;
    if (load.method == "POST") load.mayBePreloaded = false;
    corvane_->ResourceSeen(tab, {.url = url, .method = load.method, .headers = load.headers});
    if (Draw(20) == 0) corvane_->CacheStatus(url, Draw(2) != 0);
    load.id =
        stack_->Start({.tab = tab, .url = url, .method = load.method, .headers = load.headers}, load).id;
  }

  // One of the last ones, which are most likely under way.
  Load& AnyLoad() { return *(loads_.rbegin() + Draw(std::min(static_cast<int>(loads_.size()), 12))); }

  void EndLoad() {
    if (loads_.empty()) return;
    Load& load = AnyLoad();
    stack_->Cancel(load.id);
    load.over = true;
  }

  void EndHost() {
    for (Load& load : loads_) load.over = true;
    stack_.reset();
    if (Draw(2) == 0) {
      corvane_.reset();
      clock_.PostDelayed(kSecond, [this] { MakeHost(); });
    } else {
      stack_.emplace(*corvane_, clock_, transport_);
    }
  }

  const PluginFunctions& plugin_;
  Random random_;
  HostSettings settings_;
  VirtualClock clock_;
  LyingTransport transport_{clock_, random_};
  std::map<TabId, std::unique_ptr<CookieJar>> jars_;
  std::deque<Load> loads_;
  std::map<TabId, int64_t> pageUs_;
  int depth_ = 0;
  int complete_ = 0;
  int preloaded_ = 0;
  std::optional<CorvaneRuntime> corvane_;
  std::optional<NetworkStack> stack_;
};

unsigned FromEnvironment(const char* name, unsigned fallback) {
  const char* const text = std::getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::atoi(text)) : fallback;
}

TEST(RandomSessions, EveryLoadGetsWhatItMayAndNothingElse) {
  const LoadedPlugin plugin(KIV_PLUGIN_PATH);
  for (const kiv::Property& row : kiv::property::kAll) property_set(row.name, nullptr);
  android_log::SetSink([](int, int priority, const char*, const char* text) {
    EXPECT_LT(priority, int{ANDROID_LOG_WARN}) << text;
  });
  const unsigned first = FromEnvironment("KIV_SESSION", 1);
  const unsigned count = FromEnvironment("KIV_SESSIONS", 150);
  int preloaded = 0;
  for (unsigned seed = first; seed < first + count && !HasFailure(); ++seed) {
    SCOPED_TRACE("KIV_SESSION=" + std::to_string(seed));
    Session session(plugin.Functions(), seed);
    session.Run();
    preloaded += session.Preloaded();
  }
  EXPECT_GT(preloaded, static_cast<int>(count)) << "the sessions are not worth much";
  android_log::SetSink(nullptr);
}

}  // namespace
}  // namespace host
