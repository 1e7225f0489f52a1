// A host of another make: it defines every function that the plugin imports from Corvane and Android by
// itself, with nothing of the stand-ins but their headers and the network library's classes, and walks the
// plugin down a short road. Run with the plugin's path; exit status 0 when all went as it should.
#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "net/http/http_request_info.h"
#include "net/http/http_response_headers.h"
#include "net/url_request/url_request_context.h"
#include "plugin/kiv_proc_plugin.h"

namespace {

std::string g_record;
CorvaneCmd* g_posted = nullptr;
char g_something;  // what the loop and the cache point at

// A command and up to five parameters, in one piece.
struct OwnCommand : CorvaneCmd {
  OwnCommand(CorvaneCmdType t, CorvaneActionType a) : CorvaneCmd{} {
    type = t;
    action = a;
    paramsBegin = paramsEnd = places;
  }
  OwnCommand& Add(uintptr_t value) {
    CorvaneCmdParam*& place = places[paramsEnd++ - paramsBegin];
    place = &params[&place - places];
    place->value = value;
    return *this;
  }
  OwnCommand& Add(const void* pointer) { return Add(reinterpret_cast<uintptr_t>(pointer)); }

  CorvaneCmdParam params[5];
  CorvaneCmdParam* places[5];
};
OwnCommand& Own(CorvaneCmd* cmd) {
  return *static_cast<OwnCommand*>(cmd);
}

}  // namespace

// clang-format off
uint32_t CorvaneHash(const char* url) { return static_cast<uint32_t>(std::strlen(url)); }  // tells the URLs below apart
void CorvaneGetHostPortFromUrl(const std::string& url, std::string& hostPort) { hostPort = url.substr(0, url.find('/')); }
void* CorvaneGetIoMessageLoop() { return &g_something; }
void* CorvaneGetHttpCache() { return &g_something; }
int CorvaneGetMaxSocketsPerGroup() { return 3; }
base::Time CorvaneGetSystemTime() { return base::Time::FromInternalValue(7); }
int CorvaneGetTimeDeltaInMs(const base::Time& from, const base::Time& to) { return from == to ? 120001 : 0; }
int CorvaneGetVerboseLevel() { return 3; }
bool CorvaneIsVerboseEnabled() { return false; }
CorvaneCmd* CorvaneCmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int) {
  return new OwnCommand(type, action);
}
void CorvaneCmdAddParamAsUint32(CorvaneCmd* cmd, unsigned int number) { Own(cmd).Add(uintptr_t{number}); }
void CorvaneCmdAddParamAsString(CorvaneCmd* cmd, const char* text) { Own(cmd).Add(text); }  // outlives it here
// clang-format on
int CorvaneFetch(void* cookie, net::URLRequestContext* context) {
  g_record += "fetch " + std::to_string(reinterpret_cast<uintptr_t>(cookie)) + (context ? "\n" : " bare\n");
  return 5;
}
void CorvaneCmdCommitDelayed(CorvaneCmd* cmd, unsigned int delay) {
  g_record += "commit " + std::to_string(delay) + "\n";
  g_posted = cmd;
}
extern "C" int property_get(const char* key, char* value, const char* fallback) {
  g_record += std::string(key) + "=" + fallback + "\n";
  std::strcpy(value, std::strcmp(key, "net.cv.kiv.bypassen") == 0 ? "1" : fallback);
  return static_cast<int>(std::strlen(value));
}
extern "C" __attribute__((format(printf, 4, 5))) int __android_log_buf_print(int bufID, int prio,
                                                                             const char* tag, const char* fmt,
                                                                             ...) {
  char line[500];
  va_list args;
  va_start(args, fmt);
  const int length = std::vsnprintf(line, sizeof line, fmt, args);
  va_end(args);
  g_record += std::to_string(bufID) + std::to_string(prio) + (tag == nullptr ? " " : " tag! ") + line + "\n";
  return length;
}

namespace {

bool Recorded(const char* expected) {
  const std::string record = std::exchange(g_record, {});
  if (record != expected) std::fprintf(stderr, "foreign_host: recorded:\n%s", record.c_str());
  return record == expected;
}

// Ends the program when something is not as it should be.
#define REQUIRE(condition) \
  if (!(condition)) std::fprintf(stderr, "foreign_host: line %d does not hold\n", __LINE__), std::exit(1)
#define FIND(name) (reinterpret_cast<decltype(&name)>(dlsym(library, #name)))

void WalkTheRoad(void* library) {
  const char* const page = "page/1";
  const char* const url = "host/resource";
  const auto onCmd = FIND(OnCmd);
  uint32_t mask = 0;
  REQUIRE(FIND(OnInit)(0) == 1);
  REQUIRE(Recorded(
      "net.cv.kiv.on=1\nnet.cv.kiv.bypassen=0\nnet.cv.kiv.bypassdl=50\nnet.cv.kiv.cslimit=2097152\n"
      "net.cv.kiv.prlimit=5\nnet.cv.kiv.idlesock=1\nnet.cv.kiv.cacheen=1\nnet.cv.kiv.preloaderen=1\n"));
  REQUIRE(FIND(OnGetCmdMask)(&mask) == 1 && mask == 0x30C);

  net::URLRequestContext context;
  OwnCommand request(3, 9), seen(8, 1), resource(3, 5);
  request.Add(page).Add("GET").Add("A: b\r\n");
  seen.Add(page).Add("X-Requested-With: it\r\n").Add(uintptr_t{0}).Add(&context);
  resource.Add(page).Add(url).Add(uintptr_t{9}).Add(uintptr_t{0}).Add(uintptr_t{1});
  REQUIRE(onCmd(&request) == 1 && onCmd(&request) == 1);
  REQUIRE(Recorded("commit 50\n"));
  REQUIRE(onCmd(&seen) == 1);
  REQUIRE(onCmd(g_posted) == 1);
  delete static_cast<OwnCommand*>(g_posted);
  REQUIRE(Recorded(""));
  REQUIRE(onCmd(&resource) == 1);
  REQUIRE(
      Recorded("34 netstack: KIV_PROC - Delayed preload : host/resource\n"
               "34 netstack: KIV_PROC - Set For Preload (512): host/resource \n"
               "34 netstack: KIV_PROC - Check Preload (host) - Active:0, In Preload Queue:1\n"
               "34 netstack: KIV_PROC - Do Preload - host/resource\n"
               "fetch 13\n"));

  void* const cookie = reinterpret_cast<void*>(13);
  const net::HttpResponseHeaders headers(std::string("HTTP/1.1 200 OK\0Content-Length: 4\0\0", 35));
  const CorvaneFetchResponse response = {&headers};
  const std::unique_ptr<net::HttpRequestInfo> info(FIND(FetchGetRequestInfo)(cookie));
  REQUIRE(info != nullptr && info->extra_headers.ToString() == "Accept: */*\r\nX-Requested-With: it\r\n\r\n");
  REQUIRE(FIND(FetchStartComplete)(cookie, &response) == 1);
  REQUIRE(FIND(FetchReadComplete)(cookie, "body", 4) == 1);
  REQUIRE(FIND(FetchDone)(cookie, 0) == 1);
  std::string text;
  const char* body = nullptr;
  int32_t length = 0;
  REQUIRE(FIND(IsPreloaded)(url, &text, &body, &length) == 1 && std::string(body, size_t(length)) == "body");
  REQUIRE(FIND(ReleasePreloaded)(url) == 1);
  REQUIRE(FIND(OnClearDb)(0) == 1 && FIND(OnFlushDb)(0) == 1);
  REQUIRE(
      Recorded("34 netstack: KIV_PROC - OnClearDb\n"
               "34 netstack: KIV_PROC - OnFlushDb - HostMap Size: 0, CachedUrlMap Size: 0\n"));
}

}  // namespace

int main(int argc, char** argv) {
  void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
  if (library == nullptr) {
    std::fprintf(stderr, "foreign_host: %s\n", argc == 2 ? dlerror() : "usage: foreign_host PLUGIN");
    return 2;
  }
  WalkTheRoad(library);
  dlclose(library);
  return 0;
}
