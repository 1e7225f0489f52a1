// A host in one file: it loads the plugin, drives one page load through it, and prints every call in both
// directions. A browser has all of this already, spread over its network stack; here one can see it together,
// and copy it.
//
// The plugin is a shared library with undefined symbols. The program that loads it defines what the plugin
// calls: the fourteen Corvane functions, property_get and __android_log_buf_print. In a browser the classes
// in net/ and base/ come from its network library; here they come from libcorvane.so, the stand-in.
//
// Usage: minimal_host PLUGIN. The exit status is 0 when the plugin did what it should.
#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "net/http/http_request_info.h"
#include "net/http/http_response_headers.h"
#include "net/url_request/url_request_context.h"
#include "plugin/commands.h"
#include "plugin/kiv_proc_plugin.h"

namespace {

namespace command = kiv::command;

constexpr const char* kPage = "http://shop.example/";
constexpr const char* kPicture = "http://shop.example/logo.png";
constexpr const char* kPictureBytes = "a picture";

// The plugin's functions, each found under its own name.
template <typename Function>
Function* Find(void* library, const char* name) {
  auto* const function = reinterpret_cast<Function*>(dlsym(library, name));
  if (function == nullptr) {
    std::fprintf(stderr, "minimal_host: the plugin has no function %s\n", name);
    std::exit(EXIT_FAILURE);
  }
  return function;
}
#define FIND(name) Find<decltype(name)>(library, #name)

// Ends the program when the plugin did not do what it should.
void Expect(bool met, const char* expectation) {
  if (met) return;
  std::fprintf(stderr, "minimal_host: the plugin should have %s\n", expectation);
  std::exit(EXIT_FAILURE);
}

// A command in the layout that the plugin reads: the record, followed by whatever the host needs. The plugin
// knows a parameter by its position only; plugin/commands.h names every command and its parameters.
class Command : public CorvaneCmd {
 public:
  explicit Command(kiv::CommandId id) : CorvaneCmd{} {
    type = id.type;
    action = id.action;
    paramsBegin = paramsEnd = places_;
  }
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Appends a parameter. What the plugin reads must be appended in the order of the positions, without gaps.
  Command& Add(uintptr_t value) {
    const size_t position = Count();
    params_[position].value = value;
    places_[position] = &params_[position];
    paramsEnd = places_ + position + 1;
    return *this;
  }
  Command& Add(const void* pointer) { return Add(reinterpret_cast<uintptr_t>(pointer)); }
  Command& Add(const char* text) {  // copies the text; null stays null
    if (text == nullptr) return Add(uintptr_t{0});
    return Add(static_cast<const void*>(texts_.emplace_back(text).c_str()));
  }

 private:
  size_t Count() const { return static_cast<size_t>(paramsEnd - paramsBegin); }

  CorvaneCmdParam params_[8];
  CorvaneCmdParam* places_[8];
  std::deque<std::string> texts_;
};

// The plugin's calls must not be answered from inside themselves, so the host does the work later, in tasks
// of its own.
std::deque<std::function<void()>> g_tasks;
std::function<void(void* cookie)> g_runFetch;

void RunTasks() {
  while (!g_tasks.empty()) {
    const std::function<void()> task = std::move(g_tasks.front());
    g_tasks.pop_front();
    task();
  }
}

}  // namespace

// --- What the plugin calls. These are the contracts of plugin/corvane.h, in their simplest form.

// Any hash will do that depends on the text alone; equal hashes are equal URLs for the plugin.
uint32_t CorvaneHash(const char* url) {
  uint32_t hash = 2166136261;
  for (; *url != '\0'; ++url) hash = (hash ^ static_cast<unsigned char>(*url)) * 16777619;
  return hash;
}

// "http://shop.example/logo.png" becomes "shop.example:80". A browser asks its URL parser.
void CorvaneGetHostPortFromUrl(const std::string& url, std::string& hostPort) {
  const size_t begin = url.find("://") + 3;
  hostPort = url.substr(begin, url.find('/', begin) - begin) + ":80";
}

// Neither pointer is used by the plugin: it only asks whether the network stack is up.
void* CorvaneGetIoMessageLoop() {
  return &g_tasks;
}
void* CorvaneGetHttpCache() {
  return &g_tasks;
}

int CorvaneGetMaxSocketsPerGroup() {
  return 6;
}
base::Time CorvaneGetSystemTime() {
  return base::Time::FromInternalValue(0);
}
int CorvaneGetTimeDeltaInMs(const base::Time& /*from*/, const base::Time& /*to*/) {
  return 0;
}
int CorvaneGetVerboseLevel() {
  return 3;
}  // above 2: the plugin logs what it does
bool CorvaneIsVerboseEnabled() {
  return true;
}

// The plugin asks for a fetch. It holds its lock during this call, so the fetch is started from a task.
int CorvaneFetch(void* cookie, net::URLRequestContext* context) {
  std::printf("plugin: CorvaneFetch, %s\n",
              context != nullptr ? "in the page's context" : "without a context");
  g_tasks.emplace_back([cookie] { g_runFetch(cookie); });
  return 1;
}

// The plugin posts a command to itself.
CorvaneCmd* CorvaneCmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int /*value*/) {
  return new Command({.type = type, .action = action});
}
void CorvaneCmdAddParamAsUint32(CorvaneCmd* cmd, unsigned int number) {
  static_cast<Command*>(cmd)->Add(uintptr_t{number});
}
void CorvaneCmdAddParamAsString(CorvaneCmd* cmd, const char* text) {
  static_cast<Command*>(cmd)->Add(text);
}

namespace {
int32_t (*g_onCmd)(CorvaneCmd*) = nullptr;
}

// The host owns the command from here on, hands it to OnCmd after the delay, and frees it.
void CorvaneCmdCommitDelayed(CorvaneCmd* cmd, unsigned int delay) {
  std::printf("plugin: CorvaneCmdCommitDelayed, type %u action %u, delay %u\n", cmd->type, cmd->action,
              delay);
  g_tasks.emplace_back([cmd] {
    std::printf("host:   OnCmd with the plugin's own command: %d\n", g_onCmd(cmd));
    delete static_cast<Command*>(cmd);
  });
}

// The plugin reads its eight switches and limits from system properties; these are Android's two functions.
extern "C" int property_get(const char* key, char* value, const char* fallback) {
  const bool isSet = std::strcmp(key, "net.cv.kiv.bypassen") == 0;
  std::strcpy(value, isSet ? "1" : fallback);
  std::printf("plugin: property_get %s, default %s\n", key, fallback);
  return static_cast<int>(std::strlen(value));
}
extern "C" int __android_log_buf_print(int buffer, int priority, const char* tag, const char* format, ...) {
  std::printf("plugin: log, buffer %d, priority %d%s: ", buffer, priority,
              tag == nullptr ? "" : ", with a tag");
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vprintf(format, arguments);
  va_end(arguments);
  std::printf("\n");
  return length;
}

// --- The page load.

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: minimal_host PLUGIN\n");
    return 2;
  }
  // 1. Load. RTLD_NOW, so that a function that the host lacks is reported here and not in the middle of a
  // page load.
  void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "minimal_host: %s\n", dlerror());
    return 2;
  }

  // 2. Start. OnInit reads the properties. OnGetCmdMask says which types of commands the plugin wants.
  uint32_t mask = 0;
  Expect(FIND(OnInit)(0) == 1, "initialised itself");
  Expect(FIND(OnGetCmdMask)(&mask) == 1 && mask == 0x30C, "asked for the types 2, 3, 8 and 9");
  g_onCmd = FIND(OnCmd);
  const auto send = [](const char* what, Command& cmd) {
    std::printf("host:   %s\n", what);
    Expect(g_onCmd(&cmd) == 1, "handled the command");
  };

  // 3. Learn. The first visit: a page is requested, and the host sees the page use a picture. The parameter
  // in between is not read; the last two say whether the plugin should preload the picture at once, which it
  // should not.
  Command requested(command::PageRequested::kId);
  requested.Add(kPage).Add("GET").Add("Accept: */*\r\n");
  send("first visit: the page is requested", requested);
  Command seen(command::ResourceSeen::kId);
  seen.Add(kPage).Add(kPicture).Add(uintptr_t{0}).Add(uintptr_t{1}).Add(uintptr_t{0});
  send("first visit: the page uses a picture", seen);

  // 4. Order. The second visit. The plugin knows the page now; since "bypassen" is set, it posts an order for
  // the page to itself. RequestSeen gives it the context and the headers for the page's preloads. Then the
  // host orders the picture.
  net::URLRequestContext context;  // must outlive the page's preloads
  send("second visit: the page is requested", requested);
  Command request(command::RequestSeen::kId);
  request.Add(kPage)
      .Add("X-Requested-With: shop\r\n")
      .Add(uintptr_t{0})
      .Add(static_cast<const void*>(&context));
  send("second visit: the page's request has a context and headers", request);
  Command order(command::OrderPreload::kId);
  order.Add(uintptr_t{command::kDefaultPriority}).Add(kPicture).Add(uintptr_t{CorvaneHash(kPage)});
  order.Add(uintptr_t{command::kDefaultLoadFlags});
  send("second visit: the picture is ordered", order);

  // 5. Launch and callbacks. The plugin has called CorvaneFetch, because the server has free sockets. The
  // cookie that it gave goes back with every callback. All callbacks of one fetch come in this order, and
  // FetchDone comes exactly once.
  g_runFetch = [library](void* cookie) {
    const std::unique_ptr<net::HttpRequestInfo> info(FIND(FetchGetRequestInfo)(cookie));
    Expect(info != nullptr, "described its request");
    std::printf("host:   fetches %s %s\n", info->method.c_str(), info->url.spec().c_str());
    Expect(info->extra_headers.ToString() == "Accept: */*\r\nX-Requested-With: shop\r\n\r\n",
           "sent the page's headers");
    const net::HttpResponseHeaders headers(std::string("HTTP/1.1 200 OK\0Content-Length: 9\0\0", 35));
    const CorvaneFetchResponse response = {.headers = &headers};
    Expect(FIND(FetchStartComplete)(cookie, &response) == 1,
           "accepted the response");  // 0: cancel, then FetchDone
    Expect(FIND(FetchReadComplete)(cookie, kPictureBytes, 9) == 1,
           "taken the body");                                  // as often as bytes come
    Expect(FIND(FetchDone)(cookie, 0) == 1, "noted the end");  // 0: the fetch succeeded
  };
  RunTasks();

  // 6. Serve. The page requests its picture, and the network stack asks the plugin before it opens a
  // connection. The body is lent: copy it, then release it.
  std::string responseHeaders;
  const char* body = nullptr;
  int32_t length = 0;
  Expect(FIND(IsPreloaded)(kPicture, &responseHeaders, &body, &length) == 1, "held the picture");
  const std::string copy(body, static_cast<size_t>(length));
  std::printf("host:   IsPreloaded: %s, \"%s\"\n", responseHeaders.c_str(), copy.c_str());
  Expect(copy == kPictureBytes, "returned the body as it was received");

  // 7. Release. The plugin drops its copy, and the next request for the picture goes to the network.
  Expect(FIND(ReleasePreloaded)(kPicture) == 1, "taken the picture back");
  Expect(FIND(IsPreloaded)(kPicture, &responseHeaders, &body, &length) == 0, "forgotten the picture");
  std::printf("host:   ReleasePreloaded: the picture is gone\n");

  // 8. End. When the page is left, the host flushes; when the user clears the browser's data, it clears. The
  // library may be unloaded once every caller has returned.
  Expect(FIND(OnFlushDb)(0) == 1 && FIND(OnClearDb)(0) == 1, "flushed and cleared");
  dlclose(library);
  return 0;
}
