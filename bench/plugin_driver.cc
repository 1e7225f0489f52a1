#include "bench/plugin_driver.h"

#include <climits>

#include "cutils/properties.h"

namespace bench {

BenchHost& TheHost() {
  static BenchHost host;
  return host;
}

void StartPlugin() {
  corvane::SetApi(&TheHost());
  property_set("net.cv.kiv.prlimit", "2000000000");
  OnInit(0);
  uint32_t mask = 0;
  OnGetCmdMask(&mask);
}

void EmptyPlugin() {
  OnClearDb(0);
  OnFlushDb(0);
  TheHost().maxSockets = 6;
}

net::URLRequestContext* PageContext() {
  static net::URLRequestContext context;
  return &context;
}

const std::string& PageHeaders() {
  static const std::string headers = "Accept: */*\r\nX-Requested-With: com.example.browser\r\n\r\n";
  return headers;
}

uint32_t AddPage(const std::string& url) {
  corvane::Command requested(PageRequested::kId);
  requested.Lend(PageRequested::kUrl, url.c_str()).Lend(PageRequested::kMethod, "GET");
  Send(requested.Lend(PageRequested::kHeaders, PageHeaders().c_str()));

  corvane::Command seen(RequestSeen::kId);
  seen.Lend(RequestSeen::kUrl, url.c_str()).Lend(RequestSeen::kHeaders, PageHeaders().c_str());
  Send(seen.Set(RequestSeen::kContext, PageContext()));

  const uint32_t pageHash = CorvaneHash(url.c_str());
  corvane::Command cached(CacheStatus::kId);
  Send(cached.Set(CacheStatus::kUrlHash, pageHash).Set(CacheStatus::kHeld, 1));
  return pageHash;
}

void AddKnownUrls(const std::vector<std::string>& urls) {
  PageRequest request;
  for (const std::string& url : urls) request.SendFor(url.c_str());
}

void OpenTransactions(const std::vector<std::string>& urls) {
  TransactionStart start;
  uint32_t id = 0;
  for (const std::string& url : urls) start.SendFor(url.c_str(), ++id);
}

void LaunchPreloads(const std::vector<std::string>& urls, uint32_t pageHash) {
  TheHost().maxSockets = INT_MAX;
  PreloadOrder order(pageHash);
  for (const std::string& url : urls) order.SendFor(url.c_str());
}

void HoldPreloads(const std::vector<std::string>& urls, uint32_t pageHash,
                  const net::HttpResponseHeaders& headers, const std::string& body) {
  TheHost().maxSockets = INT_MAX;
  PreloadOrder order(pageHash);
  const CorvaneFetchResponse response = {&headers};
  for (const std::string& url : urls) {
    order.SendFor(url.c_str());
    FetchStartComplete(CookieOf(url), &response);
    FetchReadComplete(CookieOf(url), body.data(), static_cast<int32_t>(body.size()));
    FetchDone(CookieOf(url), 0);
  }
}

net::HttpResponseHeaders MakeHeaders(size_t bytes, size_t contentLength) {
  std::string raw = "HTTP/1.1 200 OK";
  const auto add = [&raw](const std::string& line) {
    raw += '\0';
    raw += line;
  };
  add("Date: Tue, 14 May 2024 09:12:44 GMT");
  add("Content-Type: application/javascript; charset=utf-8");
  add("Content-Length: " + std::to_string(contentLength));
  add("Cache-Control: public, max-age=31536000, immutable");
  add("Access-Control-Allow-Origin: *");
  for (int i = 0; raw.size() + 60 < bytes; ++i) {
    add("Set-Cookie: part" + std::to_string(i) + "=" + std::string(32, static_cast<char>('a' + i % 19)) +
        "; Path=/");
  }
  raw.append(2, '\0');
  return net::HttpResponseHeaders(raw);
}

void* CookieOf(const std::string& url) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(CorvaneHash(url.c_str())));
}

}  // namespace bench
