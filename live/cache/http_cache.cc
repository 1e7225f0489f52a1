#include "live/cache/http_cache.h"

#include <algorithm>
#include <utility>

#include "host/http/cache_control.h"
#include "host/http/conditions.h"
#include "host/http/header_block.h"
#include "host/http/lists.h"
#include "host/http/vary.h"
#include "live/cache/renewal.h"
#include "live/cache/reuse.h"
#include "net/http/http_response_headers.h"

namespace live {
namespace {

constexpr size_t kEntryOverhead = 512;  // the records and the nodes that hold them
constexpr size_t kMostVariants = 16;    // of one key: looking one up goes through all

CacheKey KeyOf(const CacheRequest& request) {
  return {WithoutFragment(request.url), request.partition};
}

size_t SizeOf(const CacheKey& key, const StoredResponse& stored) {
  return 3 * key.url.size() + 2 * key.partition.size() + stored.block.size() + stored.sentHeaders.size() +
         stored.body->size() + kEntryOverhead;
}

bool IsSafe(std::string_view method) {
  return method == "GET" || method == "HEAD" || method == "OPTIONS" || method == "TRACE";
}

const std::shared_ptr<const std::string>& NoBody() {
  static const auto empty = std::make_shared<const std::string>();
  return empty;
}

ServedResponse Serve(const StoredResponse& stored, const CacheRequest& request, double nowMs) {
  std::string block = ServedBlock(stored, nowMs);
  if (stored.status == 200 && http::IsNotModified(request.headers, block)) {
    return {http::NotModifiedBlock(block), NoBody()};
  }
  return {std::move(block), request.method == "HEAD" ? NoBody() : stored.body};
}

// Adds the cookies that `from` sets.
void AppendCookies(std::string_view from, std::string& block) {
  block.pop_back();
  http::ForEachHeader(from, [&block](std::string_view name, std::string_view value) {
    if (!net::EqualsIgnoringCase(name, "Set-Cookie")) return;
    block.append(name).append(": ").append(value).push_back('\0');
  });
  block.push_back('\0');
}

}  // namespace

HttpCache::HttpCache(const CacheLimits& limits, HeldObserver onHeldChanged)
    : limits_(limits), onHeldChanged_(std::move(onHeldChanged)) {}

HttpCache::~HttpCache() {
  for (CacheWriter* const writer : writers_) writer->cache_ = nullptr;
}

CacheLookup HttpCache::Lookup(const CacheRequest& request, int64_t nowUs) {
  const bool wantsBody = request.method == "GET";
  if (!wantsBody && request.method != "HEAD") return {};
  const bool onlyIfCached = http::ReadRequestCacheControl(request.headers).onlyIfCached;
  CacheLookup none{onlyIfCached ? CacheVerdict::NotAvailable : CacheVerdict::Miss};
  if (IsForServerOnly(request.headers)) return none;
  const EntryIt found = Select(KeyOf(request), request.headers);
  if (found == entries_.end()) return none;
  const StoredPtr stored = found->stored;
  if (MayServe(*stored, request.headers, ToMs(nowUs))) {
    entries_.splice(entries_.begin(), entries_, found);
    return {CacheVerdict::Fresh, Serve(*stored, request, ToMs(nowUs))};
  }
  std::string validators = Validators(*stored);
  if (onlyIfCached || !wantsBody || http::IsConditional(request.headers) || validators.empty()) return none;
  entries_.splice(entries_.begin(), entries_, found);
  return {CacheVerdict::Stale, {}, stored, std::move(validators)};
}

std::unique_ptr<CacheWriter> HttpCache::OnResponse(const CacheRequest& request, const std::string& block,
                                                   const ExchangeTimes& times) {
  const int status = net::HttpResponseHeaders(block).response_code();
  if (status < 200) return nullptr;
  std::unique_ptr<CacheWriter> writer;
  if (!IsSafe(request.method)) {
    if (status < 400) DropOutdated(request, block);
  } else if (request.method == "HEAD") {
    if (status == 200) CheckHead(request, block);
  } else if (request.method == "GET" && status == 304) {
    RenewNamed(request, block, times);
  } else if (request.method == "GET") {
    writer = Begin(request, status, block, times);
  }
  Report();
  return writer;
}

std::optional<ServedResponse> HttpCache::Renew(const CacheRequest& request, const StoredPtr& asked,
                                               const std::string& notModifiedBlock,
                                               const ExchangeTimes& times) {
  const EntryIt held = Find(KeyOf(request), asked);
  std::optional<ServedResponse> served;
  if (Renews(*asked, notModifiedBlock, true)) {
    StoredResponse renewed = Renewed(*asked, request, notModifiedBlock, times);
    served = Serve(renewed, request, renewed.receivedMs);
    AppendCookies(notModifiedBlock, served->block);
    if (held != entries_.end()) Store(request, std::move(renewed));
  } else if (held != entries_.end()) {
    Drop(held);
  }
  Report();
  return served;
}

void HttpCache::Remove(std::string_view url) {
  DropUrl(WithoutFragment(url));
  Report();
}

void HttpCache::Clear() {
  while (!writers_.empty()) (*writers_.begin())->GiveUp();
  while (!entries_.empty()) Drop(entries_.begin());
  Report();
}

bool HttpCache::Holds(std::string_view url) const {
  const std::string key = WithoutFragment(url);
  const auto found = index_.lower_bound({key, ""});
  return found != index_.end() && found->first.url == key;
}

HttpCache::EntryIt HttpCache::Select(const CacheKey& key, std::string_view requestHeaders) {
  EntryIt best = entries_.end();
  const auto variants = index_.find(key);
  if (variants == index_.end()) return best;
  for (const EntryIt& entry : variants->second) {
    const StoredResponse& stored = *entry->stored;
    if (best != entries_.end() && best->stored->madeMs > stored.madeMs) continue;
    if (http::VaryAllows(stored.block, requestHeaders, stored.sentHeaders)) best = entry;
  }
  return best;
}

HttpCache::EntryIt HttpCache::Find(const CacheKey& key, const StoredPtr& stored) {
  const auto variants = index_.find(key);
  if (variants == index_.end()) return entries_.end();
  const auto found = std::find_if(variants->second.begin(), variants->second.end(),
                                  [&stored](const EntryIt& entry) { return entry->stored == stored; });
  return found != variants->second.end() ? *found : entries_.end();
}

std::unique_ptr<CacheWriter> HttpCache::Begin(const CacheRequest& request, int status,
                                              const std::string& block, const ExchangeTimes& times) {
  const int64_t declared = DeclaredLength(block);
  const bool fits = declared < 0 || static_cast<uint64_t>(declared) <= limits_.responseBytes;
  if (fits && MayStore(request, status, block)) {
    return std::unique_ptr<CacheWriter>(new CacheWriter(*this, request, status, block, times));
  }
  const bool provesNothing = status >= 500 || status == 206 || IsForServerOnly(request.headers);
  if (!provesNothing) DropSelected(request);
  return nullptr;
}

void HttpCache::Store(const CacheRequest& request, StoredResponse stored) {
  DropSelected(request);
  CacheKey key = KeyOf(request);
  const size_t bytes = SizeOf(key, stored);
  if (!FitsLimits(bytes) || !MayStore(request, stored.status, stored.block)) return;
  bytes_ += bytes;
  changed_.insert(key.url);
  entries_.push_front({key, std::make_shared<const StoredResponse>(std::move(stored)), bytes});
  std::vector<EntryIt>& variants = index_[std::move(key)];
  variants.push_back(entries_.begin());
  if (variants.size() > kMostVariants) Drop(variants.front());
  while (bytes_ > limits_.bytes || entries_.size() > limits_.entries) Drop(std::prev(entries_.end()));
}

void HttpCache::Drop(EntryIt entry) {
  const auto variants = index_.find(entry->key);
  std::erase(variants->second, entry);
  if (variants->second.empty()) index_.erase(variants);
  changed_.insert(entry->key.url);
  bytes_ -= entry->bytes;
  entries_.erase(entry);
}

// All of those that the request may have, so that no older one comes to light.
void HttpCache::DropSelected(const CacheRequest& request) {
  const CacheKey key = KeyOf(request);
  for (EntryIt found = Select(key, request.headers); found != entries_.end();
       found = Select(key, request.headers)) {
    Drop(found);
  }
}

void HttpCache::DropUrl(const std::string& url) {
  const std::set<CacheWriter*> writers = writers_;
  for (CacheWriter* const writer : writers) {
    if (KeyOf(writer->request_).url == url) writer->GiveUp();
  }
  for (auto variants = index_.lower_bound({url, ""}); variants != index_.end() && variants->first.url == url;
       variants = index_.lower_bound({url, ""})) {
    Drop(variants->second.front());
  }
}

void HttpCache::DropOutdated(const CacheRequest& request, const std::string& block) {
  DropUrl(WithoutFragment(request.url));
  for (const char* const name : {"Location", "Content-Location"}) {
    const auto reference = http::FindHeader(block, name);
    const auto target = reference ? SameOriginTarget(request.url, *reference) : std::nullopt;
    if (target) DropUrl(*target);
  }
}

void HttpCache::RenewNamed(const CacheRequest& request, const std::string& notModifiedBlock,
                           const ExchangeTimes& times) {
  const EntryIt found = Select(KeyOf(request), request.headers);
  if (found == entries_.end()) return;
  if (Renews(*found->stored, notModifiedBlock, false)) {
    const StoredPtr stored = found->stored;
    Store(request, Renewed(*stored, request, notModifiedBlock, times));
  } else if (http::HasHeader(notModifiedBlock, "ETag")) {
    Drop(found);  // the client has another one, and that is the right one
  }
}

void HttpCache::CheckHead(const CacheRequest& request, const std::string& block) {
  const EntryIt found = Select(KeyOf(request), request.headers);
  if (found == entries_.end()) return;
  const auto differs = [&](const char* name) {
    const auto told = http::FindHeader(block, name);
    return told && told != http::FindHeader(found->stored->block, name);
  };
  const int64_t length = net::HttpResponseHeaders(block).GetContentLength();
  const bool otherLength = length >= 0 && static_cast<uint64_t>(length) != found->stored->body->size();
  if (differs("ETag") || differs("Last-Modified") || otherLength) Drop(found);
}

// The observer may change what is held: nothing here is kept across the call.
void HttpCache::Report() {
  while (!changed_.empty()) {
    const std::string url = changed_.extract(changed_.begin()).value();
    const bool held = Holds(url);
    const bool news = held ? reported_.insert(url).second : reported_.erase(url) > 0;
    if (news && onHeldChanged_) onHeldChanged_(url, held);
  }
}

CacheWriter::CacheWriter(HttpCache& cache, CacheRequest request, int status, std::string block,
                         const ExchangeTimes& times)
    : cache_(&cache), request_(std::move(request)), status_(status), block_(std::move(block)), times_(times) {
  cache.writers_.insert(this);
}

CacheWriter::~CacheWriter() {
  GiveUp();
}

void CacheWriter::GiveUp() {
  if (cache_ != nullptr) cache_->writers_.erase(this);
  cache_ = nullptr;
  body_ = {};
}

bool CacheWriter::Append(std::string_view bytes) {
  if (cache_ == nullptr) return false;
  if (bytes.size() <= cache_->limits_.responseBytes - body_.size()) {
    body_.append(bytes);
    return true;
  }
  HttpCache& cache = *cache_;
  GiveUp();
  cache.DropSelected(request_);  // what it was to replace is outdated all the same
  cache.Report();
  return false;
}

bool CacheWriter::Commit() {
  if (cache_ == nullptr) return false;
  HttpCache& cache = *cache_;
  const int64_t declared = DeclaredLength(block_);
  body_.shrink_to_fit();  // what the limits count is what is held
  auto body = std::make_shared<const std::string>(std::move(body_));
  GiveUp();
  if (declared >= 0 && static_cast<uint64_t>(declared) != body->size()) return false;
  StoredResponse stored = MakeStored(request_, status_, block_, std::move(body), times_);
  cache.Store(request_, std::move(stored));
  const bool held = cache.Select(KeyOf(request_), request_.headers) != cache.entries_.end();
  cache.Report();
  return held;
}

}  // namespace live
