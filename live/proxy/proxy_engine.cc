#include "live/proxy/proxy_engine.h"

#include <algorithm>
#include <utility>

#include "host/http/cache_control.h"
#include "host/http/header_block.h"
#include "host/reuse_rules.h"
#include "live/proxy/address_rules.h"
#include "net/http/header_text.h"
#include "url/gurl.h"

namespace live {
namespace {

using host::TabId;

constexpr size_t kMaxBrowserUrls = 50'000;  // in the estimate of the browser's cache
constexpr size_t kMaxCookieHosts = 2'000;
constexpr size_t kMaxCookieUrls = 20'000;
constexpr int64_t kLookForSettledUs = 500'000;  // or as long as pages have to be quiet, if that is shorter

// Browsers keep caches and cookies apart by the site of the page: here by its scheme and host.
std::string SiteOf(const std::string& pageUrl) {
  return pageUrl.substr(0, pageUrl.find(':')) + "://" + GURL(pageUrl).host();
}

std::string HeaderOf(std::string_view headers, std::string_view name) {
  return std::string(http::FindHeader(headers, name).value_or(""));
}

// A request that a script or a font makes without cookies, on purpose. That a request could have carried some
// is not told by the browser.
bool MayCarryCookies(std::string_view headers) {
  if (http::HasHeader(headers, "Cookie")) return true;
  return HeaderOf(headers, "Sec-Fetch-Mode") != "cors";
}

// A top-level navigation, beyond doubt: no script can send either header without the server's consent.
bool IsCertainNavigation(std::string_view headers) {
  return HeaderOf(headers, "Sec-Fetch-Dest") == "document" ||
         HeaderOf(headers, "Upgrade-Insecure-Requests") == "1";
}

// Whether the host is itself an address, and a private one.
bool IsPrivateHost(const std::string& host) {
  const bool isV6 = host.starts_with('[');
  const bool isAddress = isV6 || host.find_first_not_of("0123456789.") == std::string::npos;
  return isAddress && IsPrivateAddress(isV6 ? host.substr(1, host.size() - 2) : host);
}

// The names that lead to private addresses by the user's own word. Rules are those of
// UpstreamSettings::connectTo.
std::set<std::string> NamesOfPrivateServers(const std::vector<std::string>& connectTo) {
  std::set<std::string> names;
  for (const std::string& rule : connectTo) {
    const size_t address = rule.find(':', rule.find(':') + 1) + 1;
    if (IsPrivateHost(rule.substr(address, rule.rfind(':') - address))) {
      names.insert(rule.substr(0, rule.find(':')));
    }
  }
  return names;
}

std::string RedirectTarget(const std::string& url, const net::HttpResponseHeaders& headers) {
  const int status = headers.response_code();
  if (status < 300 || status > 399 || status == 304) return {};
  const std::string location = HeaderOf(headers.raw_headers(), "Location");
  return location.empty() ? std::string() : GURL(url).Resolve(location).spec();
}

// Its own line, so that the servers' ones stay as they are.
std::string Marked(const std::string& block, const host::LoadInfo& info) {
  std::string text;
  switch (info.source) {
    case host::LoadSource::Served:
      text = "served";
      break;
    case host::LoadSource::Joined:
      text = "joined";
      break;
    case host::LoadSource::Network:
      text = "network";
      if (info.why != host::NotServed::None) text += std::string(": ") + host::WordsFor(info.why).text;
      break;
  }
  std::string marked = block;
  if (marked.ends_with(std::string("\0\0", 2))) marked.pop_back();
  marked += "Server-Timing: preload;desc=\"" + text + "\"";
  return marked + std::string("\0\0", 2);
}

}  // namespace

// What a page's resources are fetched with, whether it has asked for them or they are preloaded: the cookies
// that the browser would send, and the addresses that they may reach. Behind a proxy the browser cannot see
// that a page of a public server reaches for a private address, which that server could not reach itself.
class ProxyEngine::PageContext final : public ConnectPolicy {
 public:
  // `site`: where the page's redirects will lead, as far as is known.
  PageContext(const ProxyEngine& engine, std::string pageUrl, std::string site)
      : engine_(engine), pageUrl_(std::move(pageUrl)), site_(std::move(site)), origin_(OriginOf(pageUrl_)) {}

  std::string CookiesFor(const std::string& url) override {
    const host::KnownResource* const known = engine_.FindKnown(pageUrl_, url);
    return engine_.cookies_.For(site_, url, known != nullptr && known->carriedCookies).value_or("");
  }
  bool MayConnectTo(std::string_view address) const override {
    return !IsPrivateAddress(address) || engine_.MayReachPrivate(origin_);
  }
  // Its navigation has been redirected.
  void Navigates(const std::string& url) {
    origin_ = OriginOf(url);
    site_ = SiteOf(url);
  }
  const std::string& Site() const { return site_; }

 private:
  const ProxyEngine& engine_;
  const std::string pageUrl_;
  std::string site_;
  std::string origin_;
};

// What the page itself is fetched with. Where it comes from tells what its resources may reach.
class ProxyEngine::NavigationContext final : public ConnectPolicy {
 public:
  NavigationContext(ProxyEngine& engine, const BrowserRequest& request)
      : engine_(engine), origin_(OriginOf(request.url)), isCertain_(IsCertainNavigation(request.headers)) {}

  bool MayConnectTo(std::string_view address) const override {
    if (engine_.settings_.allowPrivate || !IsPrivateAddress(address)) return true;
    // A server that was public does not become private: its name would have been changed for its pages to
    // reach servers here.
    const bool* const wasPrivate = engine_.isPrivateOrigin_.Peek(origin_);
    return isCertain_ && (wasPrivate == nullptr || *wasPrivate);
  }
  void SendsTo(std::string_view address) const override {
    engine_.isPrivateOrigin_.Use(origin_) = IsPrivateAddress(address);
    engine_.isPrivateOrigin_.DropExcess();
  }

 private:
  ProxyEngine& engine_;
  const std::string origin_;
  const bool isCertain_;
};

// What everything else is fetched with.
class ProxyEngine::OutsideContext final : public ConnectPolicy {
 public:
  explicit OutsideContext(bool mayReachPrivate) : mayReachPrivate_(mayReachPrivate) {}

  bool MayConnectTo(std::string_view address) const override {
    return mayReachPrivate_ || !IsPrivateAddress(address);
  }

 private:
  const bool mayReachPrivate_;
};

struct ProxyEngine::OpenPage {
  std::string url;
  std::string landed;  // the URL that its redirects have led to
  std::shared_ptr<PageContext> context;
  PageRecord record;
};

// One load on its way from the network stack to the browser.
class ProxyEngine::Load final : public host::LoadClient, public std::enable_shared_from_this<Load> {
 public:
  Load(ProxyEngine& engine, const BrowserRequest& request, const Placement& placement, std::string site,
       std::shared_ptr<ConnectPolicy> context, host::LoadClient& client)
      : engine_(&engine), client_(&client), site_(std::move(site)), context_(std::move(context)) {
    record_.page = placement.page;
    record_.pageUrl = engine.tracker_.UrlOf(placement.page);
    record_.role = placement.role;
    record_.kind = placement.kind;
    record_.method = request.method;
    record_.url = request.url;
    record_.requestHeaders = request.headers;
    record_.asked = engine.loop_.Now();
    engine.tracker_.LoadBegins(record_.page);
  }

  host::LoadId id = 0;

  void OnInformational(const net::HttpResponseHeaders& headers) override {
    client_->OnInformational(headers);
  }

  void OnResponse(const host::LoadInfo& info, const net::HttpResponseHeaders& headers) override {
    const auto self = shared_from_this();
    record_.firstByte = engine_->loop_.Now();
    record_.responseBlock = headers.raw_headers();
    engine_->cookies_.Answered(site_, record_.url, headers.raw_headers(), engine_->NowMs());
    engine_->tracker_.Answered(record_.page, record_.url, RedirectTarget(record_.url, headers),
                               record_.firstByte.ToInternalValue());
    if (engine_->settings_.mark) {
      client_->OnResponse(info, net::HttpResponseHeaders(Marked(headers.raw_headers(), info)));
    } else {
      client_->OnResponse(info, headers);
    }
  }

  void OnBody(const char* bytes, int32_t count) override {
    record_.bodyBytes += count;
    client_->OnBody(bytes, count);
  }

  void OnDone(const host::LoadInfo& info, int32_t result, const host::TransferReport& report) override {
    const auto self = shared_from_this();
    host::LoadClient* const client = client_;
    if (result == host::kOk && record_.role != Role::Unplaced) {
      engine_->browserCache_.Delivered(site_, record_.method, record_.url, record_.responseBlock,
                                       engine_->NowMs());
    }
    End(info, result, report);
    client->OnDone(info, result, report);
  }

  void Cancelled() { End({.id = id}, host::kAborted, {}); }

 private:
  void End(const host::LoadInfo& info, int32_t result, const host::TransferReport& report) {
    record_.info = info;
    record_.result = result;
    record_.transfer = report;
    record_.ended = engine_->loop_.Now();
    engine_->tracker_.LoadEnds(record_.page, record_.ended.ToInternalValue());
    if (OpenPage* const page = engine_->FindPage(record_.page)) Count(page->record);
    engine_->loads_.erase(id);
    if (engine_->observer_.onLoad) engine_->observer_.onLoad(record_);
  }

  void Count(PageRecord& page) const {
    page.bytes += record_.bodyBytes;
    page.lastEnd = record_.ended;
    if (record_.role != Role::Resource || record_.result != host::kOk) return;
    switch (record_.info.source) {
      case host::LoadSource::Served:
        ++page.served;
        break;
      case host::LoadSource::Joined:
        ++page.joined;
        break;
      case host::LoadSource::Network:
        ++page.fetched;
        break;
    }
  }

  ProxyEngine* const engine_;
  host::LoadClient* const client_;
  const std::string site_;
  const std::shared_ptr<ConnectPolicy> context_;  // its transfer may outlive the page
  LoadRecord record_;
};

ProxyEngine::ProxyEngine(EventLoop& loop, const host::PluginFunctions& plugin, const EngineSettings& settings,
                         WallClock wallClock, EngineObserver observer)
    : loop_(loop),
      settings_(settings),
      wallClock_(std::move(wallClock)),
      observer_(std::move(observer)),
      privateNames_(NamesOfPrivateServers(settings.upstream.connectTo)),
      tracker_(settings.tracker,
               [this](const std::string& pageUrl, const std::string& url) {
                 return FindKnown(pageUrl, url) != nullptr;
               }),
      browserCache_(kMaxBrowserUrls),
      cookies_(kMaxCookieHosts, kMaxCookieUrls),
      network_(loop, settings.host, settings.upstream),
      cache_(settings.cache, [this](const std::string& url, bool held) { corvane_.CacheStatus(url, held); }),
      transport_(loop, network_, cache_, wallClock_),
      corvane_(plugin, loop, transport_, settings.host),
      stack_(corvane_, loop, transport_),
      settleTimer_(loop) {
  corvane_.Start();
  corvane_.NetworkStackIsUp();
}

ProxyEngine::~ProxyEngine() {
  while (!pages_.empty()) LeavePage(pages_.begin()->first);
  for (const auto& [id, load] : std::exchange(loads_, {})) stack_.Cancel(id);
}

ProxyEngine::OpenPage* ProxyEngine::FindPage(TabId id) {
  const auto found = pages_.find(id);
  return found != pages_.end() ? found->second.get() : nullptr;
}

host::LoadId ProxyEngine::Start(const BrowserRequest& request, host::LoadClient& client) {
  const int64_t nowUs = loop_.Now().ToInternalValue();
  const Placement placement = tracker_.Place(request.method, request.url, request.headers, nowUs);
  const bool isPage = placement.role == Role::Page;
  if (isPage) SettlePages();  // an older load of the same page becomes known before
  const std::string site =
      placement.page != 0 ? SiteOf(tracker_.NavigationOf(placement.page)) : std::string();
  if (placement.page != 0) {
    browserCache_.Asked(site, request.url, request.headers, isPage, NowMs());
    cookies_.Sent(site, request.url, request.headers);
  }
  const bool withCredentials = MayCarryCookies(request.headers);
  if (isPage) BeginPage(placement.page, request);
  if (placement.role == Role::Resource) {
    corvane_.ResourceSeen(placement.page, {.url = request.url,
                                           .kind = placement.kind,
                                           .method = request.method,
                                           .headers = request.headers,
                                           .withCredentials = withCredentials});
  }
  const auto context = ContextFor(request, placement);
  const auto load = std::make_shared<Load>(*this, request, placement, site, context, client);
  load->id = stack_
                 .Start({.tab = placement.page,
                         .url = request.url,
                         .method = request.method,
                         .headers = request.headers,
                         .withCredentials = withCredentials,
                         .context = context.get(),
                         .body = request.body},
                        *load)
                 .id;
  loads_[load->id] = load;
  return load->id;
}

void ProxyEngine::Cancel(host::LoadId id) {
  const auto found = loads_.find(id);
  if (found == loads_.end()) return;
  const auto load = found->second;
  stack_.Cancel(id);
  load->Cancelled();
}

void ProxyEngine::SetReading(host::LoadId id, bool reading) {
  stack_.SetReading(id, reading);
}

// The origin that the browser names is all that an upgrade tells of its page.
AddressRule ProxyEngine::AddressesFor(const BrowserRequest& request) {
  return [policy = OutsideContextFor(request)](const std::string& address) {
    return policy->MayConnectTo(address);
  };
}

// --- Pages

void ProxyEngine::BeginPage(TabId id, const BrowserRequest& request) {
  const std::string* const landedAt = redirectedPages_.Peek(request.url);
  if (pages_.empty()) WaitForSettled();
  auto& page = pages_[id];
  page = std::make_unique<OpenPage>();
  page->url = page->landed = request.url;
  page->context = std::make_shared<PageContext>(*this, request.url,
                                                SiteOf(landedAt != nullptr ? *landedAt : request.url));
  page->record.url = request.url;
  page->record.begun = loop_.Now();
  const http::RequestCacheControl control = http::ReadRequestCacheControl(request.headers);
  // The resources of such a page are asked for in the same way, and then none of them may come from a
  // preload.
  const bool wantsNewCopies = control.noCache || control.noStore;
  corvane_.PageRequested(
      {.tab = id,
       .url = request.url,
       .method = request.method,
       .headers = request.headers,
       .context = page->context.get(),
       .isFresh = [this,
                   context = page->context](const std::string& url) { return IsFresh(context->Site(), url); },
       .whyNot =
           [this, context = page->context, wantsNewCopies](const host::KnownResource& resource) {
             if (!settings_.preload) return host::NotServed::SwitchedOff;
             if (wantsNewCopies) return host::NotServed::AsksForNewCopy;
             return WhyNotPreload(context->Site(), resource);
           }});
}

bool ProxyEngine::IsFresh(const std::string& site, const std::string& url) const {
  return browserCache_.IsFresh(site, url, NowMs());
}

host::NotServed ProxyEngine::WhyNotPreload(const std::string& site, const host::KnownResource& resource) {
  std::string headers = resource.headersToRepeat;
  if (resource.withCredentials) {
    const auto cookies = cookies_.For(site, resource.url, resource.carriedCookies);
    if (!cookies) return host::NotServed::CookiesUnknown;
    headers = host::HeadersToSend("", headers, *cookies);
  }
  // The cache below answers it as fast as a preload could.
  return transport_.IsFresh(resource.url, headers) ? host::NotServed::FreshInDiskCache
                                                   : host::NotServed::None;
}

std::shared_ptr<ConnectPolicy> ProxyEngine::ContextFor(const BrowserRequest& request,
                                                       const Placement& placement) {
  OpenPage* const page = FindPage(placement.page);
  if (placement.role == Role::Page || placement.role == Role::Continuation) {
    if (page != nullptr && placement.role == Role::Continuation) {
      page->context->Navigates(request.url);
      page->landed = request.url;
    }
    return std::make_shared<NavigationContext>(*this, request);
  }
  if (page != nullptr) return page->context;
  return OutsideContextFor(request);
}

std::shared_ptr<ConnectPolicy> ProxyEngine::OutsideContextFor(const BrowserRequest& request) const {
  // Scripts cannot choose these headers. "none" is what the user or the browser itself asks for.
  const std::string site = HeaderOf(request.headers, "Sec-Fetch-Site");
  std::string from = OriginOf(HeaderOf(request.headers, "Origin"));
  if (from.empty()) from = OriginOf(HeaderOf(request.headers, "Referer"));
  if (from.empty() && site == "same-origin") from = OriginOf(request.url);
  const bool* const isPrivate = isPrivateOrigin_.Peek(from);
  const bool isAllowed = isPrivate != nullptr ? *isPrivate : from == OriginOf(request.url);
  return std::make_shared<OutsideContext>(isAllowed || site == "none" || settings_.allowPrivate);
}

bool ProxyEngine::MayReachPrivate(const std::string& origin) const {
  if (settings_.allowPrivate) return true;
  const bool* const isPrivate = isPrivateOrigin_.Peek(origin);
  if (isPrivate != nullptr) return *isPrivate;
  // Preloads go ahead of the first navigation. Other pages of private servers have nothing preloaded then.
  const std::string host = GURL(origin).host();
  return IsPrivateHost(host) || privateNames_.contains(host);
}

const host::KnownResource* ProxyEngine::FindKnown(const std::string& pageUrl, const std::string& url) const {
  const host::KnownPage* const page = corvane_.Database().Find(pageUrl);
  if (page == nullptr) return nullptr;
  const auto found = std::find_if(page->resources.begin(), page->resources.end(),
                                  [&url](const host::KnownResource& known) { return known.url == url; });
  return found != page->resources.end() ? &*found : nullptr;
}

void ProxyEngine::LeavePage(TabId id) {
  const auto found = pages_.find(id);
  if (found == pages_.end()) return;
  const std::unique_ptr<OpenPage> page = std::move(found->second);
  pages_.erase(found);
  if (page->landed == page->url) {
    redirectedPages_.Erase(page->url);
  } else {
    redirectedPages_.Use(page->url) = page->landed;
    redirectedPages_.DropExcess();
  }
  const std::string site = SiteOf(page->landed);
  // What the browser's cache has answered was needed as well, and would fall into oblivion otherwise.
  if (const host::KnownPage* const known = corvane_.Database().Find(page->url)) {
    const std::vector<host::KnownResource> resources = known->resources;
    for (const host::KnownResource& resource : resources) {
      if (!resource.get || !IsFresh(site, resource.url)) continue;
      // The value is nobody's matter, but that there was one is remembered.
      const char* const cookies = resource.carriedCookies ? "Cookie: \r\n" : "";
      corvane_.ResourceSeen(id, {.url = resource.url,
                                 .kind = resource.kind,
                                 .headers = resource.headersToRepeat + cookies,
                                 .withCredentials = resource.withCredentials});
    }
  }
  corvane_.PageLeft(id);
  PageRecord& record = page->record;
  for (const auto& [url, preload] : corvane_.Ledger(id)) {
    if (preload.launched == base::Time()) continue;
    ++record.preloads;
    record.preloadedBytes += preload.transfer.bodyBytes;
    if (preload.used) continue;
    ++record.unusedPreloads;
    record.unusedBytes += preload.transfer.bodyBytes;
  }
  corvane_.TabClosed(id);
  if (observer_.onPage) observer_.onPage(record);
  // Loads that go on are the page's no more.
}

void ProxyEngine::WaitForSettled() {
  settleTimer_.Start(std::min(kLookForSettledUs, settings_.tracker.quietUs), [this] { SettlePages(); });
}

void ProxyEngine::SettlePages() {
  for (const TabId id : tracker_.TakeSettled(loop_.Now().ToInternalValue())) LeavePage(id);
  if (!pages_.empty()) WaitForSettled();
}

}  // namespace live
