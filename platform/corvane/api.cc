// The Corvane functions that the plugin imports. Each calls the Api that is set.
#include <atomic>
#include <chrono>

#include "corvane/api.h"
#include "corvane/command.h"
#include "url/gurl.h"

namespace corvane {
namespace {

Api g_defaultApi;
std::atomic<Api*> g_api = &g_defaultApi;

}  // namespace

Api::~Api() = default;

// 32-bit FNV-1a, but never 0: the hash is also the fetch cookie, and a null cookie is invalid.
uint32_t Api::Hash(const char* url) {
  uint32_t hash = 2166136261U;
  for (; *url != '\0'; ++url) hash = (hash ^ static_cast<unsigned char>(*url)) * 16777619U;
  return hash != 0 ? hash : 1;
}

void Api::HostPort(const std::string& url, std::string& hostPort) {
  const GURL parsed(url);
  hostPort = parsed.host();
  if (parsed.EffectiveIntPort() >= 0) hostPort += ":" + std::to_string(parsed.EffectiveIntPort());
}

int Api::Fetch(void* /*cookie*/, net::URLRequestContext* /*context*/) {
  return 0;
}
void* Api::IoMessageLoop() {
  return this;
}
void* Api::HttpCache() {
  return this;
}
int Api::MaxSocketsPerGroup() {
  return 6;
}

base::Time Api::SystemTime() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return base::Time::FromInternalValue(
      std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count());
}

int Api::VerboseLevel() {
  return 0;
}
bool Api::VerboseEnabled() {
  return false;
}

CorvaneCmd* Api::CmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int /*value*/) {
  return Command({type, action}).Release();
}

void Api::CommitDelayed(CorvaneCmd* cmd, unsigned int /*delay*/) {
  FreeCommand(cmd);
}

void SetApi(Api* api) {
  g_api = api != nullptr ? api : &g_defaultApi;
}

}  // namespace corvane

using corvane::g_api;

uint32_t CorvaneHash(const char* url) {
  return g_api.load()->Hash(url);
}

void CorvaneGetHostPortFromUrl(const std::string& url, std::string& hostPort) {
  g_api.load()->HostPort(url, hostPort);
}

int CorvaneFetch(void* cookie, net::URLRequestContext* context) {
  return g_api.load()->Fetch(cookie, context);
}

void* CorvaneGetIoMessageLoop() {
  return g_api.load()->IoMessageLoop();
}
void* CorvaneGetHttpCache() {
  return g_api.load()->HttpCache();
}
int CorvaneGetMaxSocketsPerGroup() {
  return g_api.load()->MaxSocketsPerGroup();
}
base::Time CorvaneGetSystemTime() {
  return g_api.load()->SystemTime();
}

// Saturates, so that a clock that jumps does not make an old time look recent.
int CorvaneGetTimeDeltaInMs(const base::Time& from, const base::Time& to) {
  int64_t microseconds = 0;
  if (__builtin_sub_overflow(to.ToInternalValue(), from.ToInternalValue(), &microseconds)) {
    return to > from ? INT32_MAX : INT32_MIN;
  }
  const int64_t ms = microseconds / 1000;
  return ms > INT32_MAX ? INT32_MAX : ms < INT32_MIN ? INT32_MIN : static_cast<int>(ms);
}

int CorvaneGetVerboseLevel() {
  return g_api.load()->VerboseLevel();
}
bool CorvaneIsVerboseEnabled() {
  return g_api.load()->VerboseEnabled();
}

CorvaneCmd* CorvaneCmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value) {
  return g_api.load()->CmdCreate(type, action, value);
}

void CorvaneCmdAddParamAsUint32(CorvaneCmd* cmd, unsigned int number) {
  corvane::AppendNumber(cmd, number);
}
void CorvaneCmdAddParamAsString(CorvaneCmd* cmd, const char* text) {
  corvane::AppendText(cmd, text);
}

void CorvaneCmdCommitDelayed(CorvaneCmd* cmd, unsigned int delay) {
  g_api.load()->CommitDelayed(cmd, delay);
}
