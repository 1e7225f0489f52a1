// Driving the one plugin of this process through its exported functions: a host that answers at once and
// records nothing, commands whose parameters are set in place, and the steps that several rows share.
// One thread.
#ifndef BENCH_PLUGIN_DRIVER_H_
#define BENCH_PLUGIN_DRIVER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "corvane/api.h"
#include "corvane/command.h"
#include "net/http/http_response_headers.h"
#include "net/url_request/url_request_context.h"
#include "plugin/kiv_proc_plugin.h"

namespace bench {

using namespace kiv::command;

// Starts every fetch and never calls back; time stands still; logs nothing.
class BenchHost : public corvane::Api {
 public:
  int Fetch(void* /*cookie*/, net::URLRequestContext* /*context*/) override { return 1; }
  int MaxSocketsPerGroup() override { return maxSockets; }
  base::Time SystemTime() override { return now; }

  int maxSockets = 6;
  base::Time now = base::Time::FromInternalValue(1'000'000'000);
};

BenchHost& TheHost();

// Hands a command to the plugin. Rows use one record again and again and lend it its texts: setting a
// parameter is then a store, so that sending costs the plugin's time and no more.
inline bool Send(const corvane::Command& command) {
  return OnCmd(command.Get()) != 0;
}

// Requests pages without headers.
class PageRequest {
 public:
  PageRequest() { request_.Lend(PageRequested::kMethod, "GET").Lend(PageRequested::kHeaders, ""); }
  bool SendFor(const char* url) { return Send(request_.Lend(PageRequested::kUrl, url)); }

 private:
  corvane::Command request_{PageRequested::kId};
};

// Starts transactions.
class TransactionStart {
 public:
  bool SendFor(const char* url, uint32_t id) {
    return Send(start_.Lend(TransactionStarted::kUrl, url).Set(TransactionStarted::kTransactionId, id));
  }

 private:
  corvane::Command start_{TransactionStarted::kId};
};

// Orders preloads for one page.
class PreloadOrder {
 public:
  explicit PreloadOrder(uint32_t pageHash) {
    order_.Set(OrderPreload::kPageHash, pageHash).Set(OrderPreload::kLoadFlags, kDefaultLoadFlags);
  }
  bool SendFor(const char* url, uint32_t priority = kDefaultPriority) {
    return Send(order_.Set(OrderPreload::kPriority, priority).Lend(OrderPreload::kUrl, url));
  }

 private:
  corvane::Command order_{OrderPreload::kId};
};

// Switches the plugin on with a preload limit that stops nothing. Once per process.
void StartPlugin();

// Forgets all URLs, hosts and preloads, and gives the host its sockets back. No loan may be out.
void EmptyPlugin();

// Makes a page known whose context and headers its sub-resources are fetched with, and that outlives a flush.
// Returns its hash. `url` and the context outlive the page.
uint32_t AddPage(const std::string& url);

// The header text that a page of AddPage lends to its sub-resources.
const std::string& PageHeaders();
net::URLRequestContext* PageContext();

void AddKnownUrls(const std::vector<std::string>& urls);

// Opens one transaction per URL, numbered 1 and up.
void OpenTransactions(const std::vector<std::string>& urls);

// Launches the fetch of every URL at once, for the page. The host then has sockets without end.
void LaunchPreloads(const std::vector<std::string>& urls, uint32_t pageHash);

// Launches every URL for the page and hands it a response with these headers and, in one piece, this body,
// before the next one. They can be served then.
void HoldPreloads(const std::vector<std::string>& urls, uint32_t pageHash,
                  const net::HttpResponseHeaders& headers, const std::string& body);

// A raw header block of about `bytes` bytes with a few dozen ordinary headers, that declares `contentLength`.
net::HttpResponseHeaders MakeHeaders(size_t bytes, size_t contentLength);

// The fetch cookie of a URL.
void* CookieOf(const std::string& url);

}  // namespace bench

#endif  // BENCH_PLUGIN_DRIVER_H_
