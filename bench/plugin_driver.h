// Driving the one plugin of this process through its exported functions: a host that answers at once and
// records nothing, commands whose parameters are set in place, and the steps that several rows share.
// One thread.
#ifndef BENCH_PLUGIN_DRIVER_H_
#define BENCH_PLUGIN_DRIVER_H_

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "corvane/host.h"
#include "net/http/http_response_headers.h"
#include "net/url_request/url_request_context.h"
#include "plugin/kiv_proc_plugin.h"

namespace bench {

// Starts every fetch and never calls back; time stands still; logs nothing.
class BenchHost : public corvane::Host {
 public:
  int Fetch(void* /*cookie*/, net::URLRequestContext* /*context*/) override { return 1; }
  int MaxSocketsPerGroup() override { return maxSockets; }
  base::Time SystemTime() override { return now; }

  int maxSockets = 6;
  base::Time now = base::Time::FromInternalValue(1'000'000'000);
};

BenchHost& TheHost();

// One command record, used again and again: setting a parameter is a store, so that sending costs the
// plugin's time and no more. Texts stay the caller's.
class Command {
 public:
  Command(CorvaneCmdType type, CorvaneActionType action, uint32_t count);
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  void Set(size_t index, const char* text) { values_[index].value = reinterpret_cast<uintptr_t>(text); }
  void Set(size_t index, uint32_t number) { values_[index].value = number; }
  void Set(size_t index, const void* pointer) { values_[index].value = reinterpret_cast<uintptr_t>(pointer); }
  int32_t Send() { return OnCmd(&cmd_); }

 private:
  std::array<CorvaneCmdParam, 5> values_{};
  std::array<CorvaneCmdParam*, 5> order_;
  CorvaneCmd cmd_{};
};

// Requests pages without headers.
class PageRequest {
 public:
  PageRequest() {
    request_.Set(1, "GET");
    request_.Set(2, "");
  }
  bool Send(const char* url) {
    request_.Set(0, url);
    return request_.Send() != 0;
  }

 private:
  Command request_{3, 9, 3};
};

// Starts transactions.
class TransactionStart {
 public:
  bool Send(const char* url, uint32_t id) {
    start_.Set(0, url);
    start_.Set(2, id);
    return start_.Send() != 0;
  }

 private:
  Command start_{9, 1, 3};
};

// Orders preloads for one page.
class PreloadOrder {
 public:
  explicit PreloadOrder(uint32_t pageHash) {
    order_.Set(2, pageHash);
    order_.Set(3, kLoadFlags);
  }
  bool Send(const char* url, uint32_t priority = kPriority) {
    order_.Set(0, priority);
    order_.Set(1, url);
    return order_.Send() != 0;
  }

  static constexpr uint32_t kPriority = 512;
  static constexpr uint32_t kLoadFlags = 0x800000;

 private:
  Command order_{8, 21, 4};
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
