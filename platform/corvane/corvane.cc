// The Corvane functions that the plugin imports, each one handed to the Host that is set.
#include <atomic>
#include <chrono>

#include "corvane/command.h"
#include "corvane/host.h"
#include "url/gurl.h"

namespace corvane {
namespace {

Host g_defaultHost;
std::atomic<Host*> g_host = &g_defaultHost;

}  // namespace

Host::~Host() = default;

// 32-bit FNV-1a, with 0 left out: the hash is also the fetch cookie, and a null cookie means none.
uint32_t Host::Hash(const char* url) {
  uint32_t hash = 2166136261U;
  for (; *url != '\0'; ++url) hash = (hash ^ static_cast<unsigned char>(*url)) * 16777619U;
  return hash != 0 ? hash : 1;
}

void Host::HostPort(const std::string& url, std::string& hostPort) {
  const GURL parsed(url);
  hostPort = parsed.host();
  if (parsed.EffectiveIntPort() >= 0) hostPort += ":" + std::to_string(parsed.EffectiveIntPort());
}

int Host::Fetch(void* /*cookie*/, net::URLRequestContext* /*context*/) {
  return 0;
}
void* Host::IoMessageLoop() {
  return this;
}
void* Host::HttpCache() {
  return this;
}
int Host::MaxSocketsPerGroup() {
  return 6;
}

base::Time Host::SystemTime() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return base::Time::FromInternalValue(
      std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count());
}

int Host::VerboseLevel() {
  return 0;
}
bool Host::VerboseEnabled() {
  return false;
}

CorvaneCmd* Host::CmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int /*value*/) {
  return NewCommand(type, action);
}

void Host::CommitDelayed(CorvaneCmd* cmd, unsigned int /*delay*/) {
  FreeCommand(cmd);
}

void SetHost(Host* host) {
  g_host = host != nullptr ? host : &g_defaultHost;
}

}  // namespace corvane

using corvane::g_host;

uint32_t CorvaneHash(const char* url) {
  return g_host.load()->Hash(url);
}

void CorvaneGetHostPortFromUrl(const std::string& url, std::string& hostPort) {
  g_host.load()->HostPort(url, hostPort);
}

int CorvaneFetch(void* cookie, net::URLRequestContext* context) {
  return g_host.load()->Fetch(cookie, context);
}

void* CorvaneGetIoMessageLoop() {
  return g_host.load()->IoMessageLoop();
}
void* CorvaneGetHttpCache() {
  return g_host.load()->HttpCache();
}
int CorvaneGetMaxSocketsPerGroup() {
  return g_host.load()->MaxSocketsPerGroup();
}
base::Time CorvaneGetSystemTime() {
  return g_host.load()->SystemTime();
}

// Saturates: a clock that jumps must not turn an old time into a young one.
int CorvaneGetTimeDeltaInMs(const base::Time& from, const base::Time& to) {
  int64_t microseconds = 0;
  if (__builtin_sub_overflow(to.ToInternalValue(), from.ToInternalValue(), &microseconds)) {
    return to > from ? INT32_MAX : INT32_MIN;
  }
  const int64_t ms = microseconds / 1000;
  return ms > INT32_MAX ? INT32_MAX : ms < INT32_MIN ? INT32_MIN : static_cast<int>(ms);
}

int CorvaneGetVerboseLevel() {
  return g_host.load()->VerboseLevel();
}
bool CorvaneIsVerboseEnabled() {
  return g_host.load()->VerboseEnabled();
}

CorvaneCmd* CorvaneCmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value) {
  return g_host.load()->CmdCreate(type, action, value);
}

void CorvaneCmdAddParamAsUint32(CorvaneCmd* cmd, unsigned int number) {
  corvane::AddNumber(cmd, number);
}
void CorvaneCmdAddParamAsString(CorvaneCmd* cmd, const char* text) {
  corvane::AddText(cmd, text);
}

void CorvaneCmdCommitDelayed(CorvaneCmd* cmd, unsigned int delay) {
  g_host.load()->CommitDelayed(cmd, delay);
}
