// Any bytes as a row of calls by the host: commands, fetch callbacks, queries and sweeps in any order, with
// cookies known and unknown, arguments present and absent, and a host that answers yes and no. The library is
// held against the model after every call. Between inputs it is emptied, not loaded anew.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "corvane/command.h"
#include "cutils/properties.h"
#include "fuzz/check.h"
#include "fuzz/fuzz_host.h"
#include "fuzz/fuzz_input.h"
#include "net/http/http_request_info.h"
#include "net/http/http_response_headers.h"
#include "plugin/kiv_proc_plugin.h"
#include "plugin/properties.h"

namespace {

using namespace kiv::command;

constexpr const char* kHeaderTexts[] = {"", "A: b\r\n\r\n", "X-Requested-With: it\r\nAccept: x\r\n",
                                        "\r\n\r\n:\r\nno colon\r\n: no name\r\nx-requested-with:", "GET"};

// The parameters of each command, by position: t a URL, m a method, h header lines, n a number, u the hash of
// a URL, c a request context. The kinds are the contract: a number in the place of a text is the caller's own
// fault.
struct CommandKind {
  kiv::CommandId id;
  const char* params;
  bool handled = true;
};
constexpr CommandKind kCommands[] = {
    {PageRequested::kId, "tmh"},
    {ResourceSeen::kId, "ttnnn"},
    {WithdrawPreloads::kId, "u"},
    {CacheStatus::kId, "un"},
    {TransactionStarted::kId, "tnn"},
    {TransactionDone::kId, "tn"},
    {RequestSeen::kId, "thnc"},
    {CheckPreloads::kId, ""},
    {StartDelayedFetches::kId, ""},
    {OrderPreload::kId, "ntunh"},
    {{8, 2}, "", false},
    {{5, 9}, "tmh", false},
    {{3, 23}, "n", false},
    {{0xFFFFFFFF, 13}, "un", false},
};

class World {
 public:
  explicit World(FuzzInput input) : input_(input), host_(model_) {
    host_.hashing = static_cast<FuzzHost::Hashing>(input_.Byte() % 4);
    Configure({});
  }

  void Run() {
    while (!input_.Empty()) {
      Call();
      model_.CheckLoans();
    }
    LeaveNothing();
  }

 private:
  struct Property {
    const char* name;
    const char* text;
  };

  void Call() {
    switch (input_.Byte() % 16) {
      case 0:
        return ChangeSwitches();
      case 1:
        return ChangeHost();
      case 2:
      case 3:
      case 4:
        return SendCommand();
      case 5:
        return LearnAndOrder();
      case 6:
        return DeliverPosted();
      case 7:
        return TakeRequest();
      case 8:
        return StartComplete();
      case 9:
      case 10:
        return ReadComplete();
      case 11:
        return Done();
      case 12:
        return Ask();
      case 13:
        return Release(input_.OneOf(FuzzHost::kUrls));
      case 14:
        return AskDiskCache();
      default:
        return Sweep();
    }
  }

  // --- Configuration and host

  void Configure(const Property& property) {
    if (property.name == nullptr) {
      for (const kiv::Property& row : kiv::property::kAll) property_set(row.name, nullptr);
    } else {
      property_set((std::string("net.cv.kiv.") + property.name).c_str(), property.text);
    }
    FUZZ_CHECK(OnInit(input_.Byte()) == 1);
    const auto valueOf = [](const char* name, const char* fallback) {
      char text[PROPERTY_VALUE_MAX];
      property_get(name, text, fallback);
      return std::atoi(text);
    };
    enabled_ = valueOf("net.cv.kiv.on", "1") != 0;
    model_.cacheEnabled = valueOf("net.cv.kiv.cacheen", "1") != 0;
    model_.sizeLimit = static_cast<uint32_t>(valueOf("net.cv.kiv.cslimit", "2097152"));
    const bool preloader = valueOf("net.cv.kiv.preloaderen", "1") != 0;
    FUZZ_CHECK(IsPreloaderEnabled() == (model_.cacheEnabled && preloader ? 1 : 0));
  }

  void ChangeSwitches() {
    constexpr Property kProperties[] = {
        {"on", "0"},        {"on", "1"},      {"bypassen", "1"}, {"bypassen", "0"},    {"bypassdl", "-3"},
        {"cslimit", "0"},   {"cslimit", "9"}, {"cslimit", "-1"}, {"cslimit", ""},      {"cslimit", "x"},
        {"prlimit", "0"},   {"prlimit", "1"}, {"prlimit", "-1"}, {"idlesock", "0"},    {"idlesock", "7"},
        {"idlesock", "-1"}, {"cacheen", "0"}, {"cacheen", "1"},  {"preloaderen", "0"}, {"preloaderen", "2"},
    };
    Configure(input_.OneOf(kProperties));
  }

  void ChangeHost() {
    constexpr int64_t kSteps[] = {1, 60'000, 120'000, 120'001, -5, 5'000'000'000};
    constexpr int kSockets[] = {6, 1, 0, 2, 99, -1};
    switch (input_.Byte() % 7) {
      case 0:
        host_.fetchAnswer = input_.Flag() ? 1 : 0;
        break;
      case 1:
        host_.hasLoop = input_.Flag();
        break;
      case 2:
        host_.hasHttpCache = input_.Flag();
        break;
      case 3:
        host_.maxSockets = input_.OneOf(kSockets);
        break;
      case 4:
        host_.nowMs += input_.OneOf(kSteps);
        break;
      case 5:
        host_.verboseEnabled = input_.Flag();
        break;
      default:
        host_.canCreateCommands = input_.Flag();
    }
  }

  // --- Commands

  const char* Url() { return input_.OneOf(FuzzHost::kUrls); }

  void SetParam(corvane::Command& command, size_t at, char kind) {
    constexpr uint32_t kNumbers[] = {0, 1, 2, 7, 512, 0x800000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    constexpr const char* kMethods[] = {"GET", "POST", "", nullptr};
    const uint8_t choice = input_.Byte();
    const bool null = choice % 16 == 15;
    const char* const url = FuzzHost::kUrls[choice % std::size(FuzzHost::kUrls)];
    const kiv::TextParam text = {at};
    const kiv::NumberParam number = {at};
    switch (kind) {
      case 't':
        command.Set(text, null ? nullptr : url);
        break;
      case 'm':
        command.Set(text, kMethods[null ? 3 : choice / 4 % 4]);
        break;
      case 'h':
        command.Set(text, null ? nullptr : kHeaderTexts[choice % std::size(kHeaderTexts)]);
        break;
      case 'n':
        command.Set(number, choice < 128 ? kNumbers[choice % std::size(kNumbers)] : input_.Number());
        break;
      case 'u':
        command.Set(number, choice < 128 ? host_.Hash(url) : 0);
        break;
      default:
        command.Set(RequestSeen::kContext, null ? nullptr : &host_.contexts[choice % 2]);
    }
  }

  void Send(CorvaneCmd* cmd, bool handled) { FUZZ_CHECK(OnCmd(cmd) == (enabled_ && handled ? 1 : 0)); }

  void SendCommand() {
    const CommandKind& kind = input_.OneOf(kCommands);
    corvane::Command command(kind.id);
    const uint8_t cut = input_.Byte();  // the last ones of a command may be absent
    for (size_t at = 0; kind.params[at] != '\0'; ++at) {
      if (cut >= 128 && at == cut % 8) break;
      SetParam(command, at, kind.params[at]);
    }
    if (cut % 128 == 127) FUZZ_CHECK(OnCmd(nullptr) == 0);
    Send(command.Get(), kind.handled);
  }

  // The short way to a launch, so that not every input has to find it anew.
  void LearnAndOrder() {
    const char* const page = Url();
    const char* const url = Url();
    corvane::Command requested(PageRequested::kId);
    Send(requested.Set(PageRequested::kUrl, page).Set(PageRequested::kMethod, "GET").Get(), true);
    corvane::Command seen(RequestSeen::kId);
    seen.Set(RequestSeen::kUrl, page).Set(RequestSeen::kHeaders, input_.OneOf(kHeaderTexts));
    Send(seen.Set(RequestSeen::kContext, &host_.contexts[0]).Get(), true);
    corvane::Command order(OrderPreload::kId);
    order.Set(OrderPreload::kPriority, input_.Byte()).Set(OrderPreload::kUrl, url);
    Send(order.Set(OrderPreload::kPageHash, host_.Hash(page)).Get(), true);
  }

  void DeliverPosted() {
    for (CorvaneCmd* cmd : std::exchange(host_.posted, {})) {
      Send(cmd, true);
      corvane::FreeCommand(cmd);
    }
  }

  // --- Fetch callbacks

  void* Cookie() {
    const uint8_t choice = input_.Byte();
    uint64_t value = host_.Hash(FuzzHost::kUrls[choice % std::size(FuzzHost::kUrls)]);
    if (choice >= 224) value = input_.Number();
    if (choice >= 240) value |= uint64_t{1} << 32;  // another cookie where there is room for it
    return reinterpret_cast<void*>(static_cast<uintptr_t>(value));
  }

  // Null also for the cookie that is none.
  ModelEntry* Known(void* cookie) {
    return cookie != nullptr ? model_.Find(reinterpret_cast<uintptr_t>(cookie)) : nullptr;
  }

  void TakeRequest() {
    void* const cookie = Cookie();
    const std::unique_ptr<net::HttpRequestInfo> info(FetchGetRequestInfo(cookie));
    ModelEntry* const entry = Known(cookie);
    FUZZ_CHECK((info != nullptr) == (entry != nullptr));
    if (entry == nullptr) return;
    FUZZ_CHECK(info->url.spec() == GURL(entry->url).spec() && info->method == "GET");
    entry->state = ModelState::Running;
  }

  std::string ResponseHeaders() {
    constexpr const char* kLines[] = {"HTTP/1.1 200 OK",
                                      "HTTP/1.1 404 Not Found",
                                      "no status line",
                                      "Content-Type: text/html",
                                      "Content-Length: 3",
                                      "Content-Length: 100",
                                      "Content-Length: 2097153",
                                      "Content-Length: 4294967290",
                                      "Content-Length: 4294967296",
                                      "Content-Length: -3",
                                      "Content-Length:",
                                      ""};
    const uint8_t kind = input_.Byte();
    std::string raw;
    if (kind < 96)
      return std::string("HTTP/1.1 200 OK\0Content-Length: ", 32) + std::to_string(kind) + '\0' + '\0';
    if (kind >= 224) return input_.Bytes(kind - 224);
    for (int line = 0; line < kind % 5; ++line) raw += std::string(input_.OneOf(kLines)) + '\0';
    return raw + '\0';
  }

  void StartComplete() {
    void* const cookie = Cookie();
    const net::HttpResponseHeaders headers(ResponseHeaders());
    const uint8_t missing = input_.Byte();
    const CorvaneFetchResponse response = {missing == 255 ? nullptr : &headers};
    const int32_t result = FetchStartComplete(cookie, missing == 254 ? nullptr : &response);
    ModelEntry* const entry = missing < 254 ? Known(cookie) : nullptr;
    if (entry != nullptr) {
      entry->responseCode = headers.response_code();
      entry->contentLength = headers.GetContentLength();
      if (model_.cacheEnabled) entry->headers = headers.raw_headers();
    }
    FUZZ_CHECK(result == (entry != nullptr && model_.MayHold(*entry) ? 1 : 0));
  }

  void ReadComplete() {
    constexpr int32_t kCounts[] = {0, -1, INT32_MIN, 1, 10, 11, 100, 4096, 65536};
    void* const cookie = Cookie();
    const uint8_t choice = input_.Byte();
    const int32_t count = choice < 128 ? choice : kCounts[choice % std::size(kCounts)];
    const bool null = choice == 255;
    std::string bytes(static_cast<size_t>(std::max(count, 0)), static_cast<char>(++chunks_));
    if (!bytes.empty()) bytes.back() = '.';
    ModelEntry* const entry = count > 0 && !null ? Known(cookie) : nullptr;
    const uint64_t capacity = entry != nullptr ? model_.CapacityFor(*entry, bytes.size()) : 0;
    if (capacity > 4'000'000) return;  // a buffer that would only cost time
    FUZZ_CHECK(FetchReadComplete(cookie, null ? nullptr : bytes.data(), count) == (capacity != 0 ? 1 : 0));
    if (capacity == 0) return;
    if (capacity != entry->capacity)
      model_.Removed(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(cookie)));
    entry->capacity = capacity;
    entry->body += bytes;
  }

  void Done() {
    void* const cookie = Cookie();
    const int32_t result = input_.Byte() < 224 ? 0 : -1;
    ModelEntry* const entry = Known(cookie);
    FUZZ_CHECK(FetchDone(cookie, result) == (entry != nullptr ? 1 : 0));
    if (entry == nullptr) return;
    const bool complete = result == 0 && entry->responseCode == 200 && !entry->body.empty();
    entry->state = complete ? ModelState::Preloaded : ModelState::Failed;
  }

  // --- Queries

  void Ask() {
    const char* const url = Url();
    const uint8_t missing = input_.Byte();
    std::string headers = "untouched";
    const char* body = nullptr;
    int32_t length = -1;
    const int32_t result = IsPreloaded(missing == 252 ? nullptr : url, missing == 253 ? nullptr : &headers,
                                       missing == 254 ? nullptr : &body, missing == 255 ? nullptr : &length);
    const uint32_t hash = host_.Hash(url);
    const ModelEntry* const entry = missing < 252 ? model_.Find(hash) : nullptr;
    const bool held = model_.CanBeServed(entry);
    const bool served = held && entry->headers.find("text/html") == std::string::npos;
    FUZZ_CHECK(result == (served ? 1 : 0));
    FUZZ_CHECK(headers == (held ? entry->headers : "untouched"));
    if (!served) {
      FUZZ_CHECK(body == nullptr && length == -1);
      return;
    }
    FUZZ_CHECK(std::string(body, static_cast<size_t>(length)) == entry->body);
    model_.Lent(hash, body);
  }

  void Release(const char* url) {
    const uint32_t hash = host_.Hash(url);
    const bool removes = model_.cacheEnabled && model_.Find(hash) != nullptr;
    FUZZ_CHECK(ReleasePreloaded(url) == (removes ? 1 : 0));
    FUZZ_CHECK(ReleasePreloaded(nullptr) == 0);
    if (!model_.cacheEnabled) return;
    model_.Returned(hash);
    model_.entries.erase(hash);
    model_.Removed(hash);
  }

  void AskDiskCache() {
    const char* const url = Url();
    const ModelEntry* const entry = model_.Find(host_.Hash(url));
    const bool held = entry != nullptr && entry->state == ModelState::Preloaded;
    FUZZ_CHECK(IsInDC(url) == (held ? 1 : 0));
    FUZZ_CHECK(IsInDC(nullptr) == 0);
    if (!held) return;
    model_.entries.erase(host_.Hash(url));
    model_.Removed(host_.Hash(url));
  }

  // --- Sweeps

  void Flush() {
    host_.stuckLines.clear();
    FUZZ_CHECK(OnFlushDb(input_.Byte()) == 1);
    std::vector<std::string> expected;
    if (enabled_) {
      model_.FlushBegins();
      for (const auto& [hash, entry] : std::exchange(model_.entries, {})) {
        model_.Removed(hash);
        const bool stale = entry.state == ModelState::Preloaded && host_.nowMs - entry.madeMs > 120'000;
        if (entry.state == ModelState::Failed || stale) continue;
        expected.push_back(entry.url + " (" + std::to_string(static_cast<int>(entry.state)) + ")");
      }
    }
    FUZZ_CHECK(host_.stuckLines == expected);
  }

  void Sweep() {
    const uint8_t choice = input_.Byte();
    if (choice < 160) return Flush();
    if (choice < 224) {
      FUZZ_CHECK(OnClearDb(choice) == 1);
      return;
    }
    std::string name, version;
    FUZZ_CHECK(OnGetProcInfo(name, version) == 1 && name == "kiv_plugin" && version == "6.0.3");
    FUZZ_CHECK(OnFetchDb() == 1);
  }

  // Every loan comes back, every preload that the model knows is there to be released, and no other is.
  void LeaveNothing() {
    Configure({});
    for (const char* url : FuzzHost::kUrls) {
      do Release(url);
      while (model_.LoansAreOut(host_.Hash(url)));
    }
    FUZZ_CHECK(model_.entries.empty() && model_.bodies.empty());
    Flush();
    FUZZ_CHECK(OnClearDb(0) == 1);
    for (CorvaneCmd* cmd : host_.posted) corvane::FreeCommand(cmd);
  }

  FuzzInput input_;
  CacheModel model_;
  FuzzHost host_;
  bool enabled_ = true;
  unsigned chunks_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int32_t tableBuilt = OnGetCmdMask(nullptr);
  FUZZ_CHECK(tableBuilt == 1);
  World(FuzzInput(data, size)).Run();
  return 0;
}
