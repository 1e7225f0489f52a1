// The host framework as the plugin sees it: the command record, the response record of a fetch, and the free
// functions that the browser's network library exports. The plugin defines none of them.
#ifndef PLUGIN_CORVANE_H_
#define PLUGIN_CORVANE_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/time/time.h"

namespace net {
class HttpResponseHeaders;
class URLRequestContext;
}  // namespace net

using CorvaneCmdType = uint32_t;
using CorvaneActionType = uint32_t;

// One parameter of a command. The host's record goes on after this word; the plugin reads no further, and
// knows from the parameter's position whether the word is a number or a pointer.
struct CorvaneCmdParam {
  uintptr_t value;
};

// A command: owned by the host, lent to the plugin for the length of one OnCmd call.
struct CorvaneCmd {
  uint32_t word0;
  CorvaneCmdType type;
  CorvaneActionType action;
  uint32_t words3To7[5];
  // One pointer per parameter, in the order in which they were added. Both null when there are none.
  CorvaneCmdParam* const* paramsBegin;
  CorvaneCmdParam* const* paramsEnd;
};

static_assert(offsetof(CorvaneCmd, type) == 4);
static_assert(offsetof(CorvaneCmd, action) == 8);
static_assert(offsetof(CorvaneCmd, paramsBegin) == 32);
#if UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(CorvaneCmd, paramsEnd) == 36);
static_assert(sizeof(CorvaneCmd) == 40);
static_assert(sizeof(CorvaneCmdParam) == 4);
#endif

// What FetchStartComplete receives. `headers` is owned by the fetcher and lives for the call.
struct CorvaneFetchResponse {
  const net::HttpResponseHeaders* headers;
};

// The 32-bit hash of a NUL-terminated URL; depends on the text alone. Any thread.
uint32_t CorvaneHash(const char* url);

// Fills `hostPort` with the URL's host and port as one text, the same for the same host and port every time;
// empty for a URL without host. Any thread.
void CorvaneGetHostPortFromUrl(const std::string& url, std::string& hostPort);

// Starts the fetch that the cookie stands for. Non-zero: it was started, and the fetcher will call the
// plugin's fetch callbacks with that cookie, later, from tasks of its own, never from inside this call (the
// plugin calls it with PreloadLock held). Zero: refused.
int CorvaneFetch(void* cookie, net::URLRequestContext* context);

// Null while the network stack's IO message loop or the HTTP cache does not exist. Not owned.
void* CorvaneGetIoMessageLoop();
void* CorvaneGetHttpCache();

// How many sockets the browser's pool allows per host and port.
int CorvaneGetMaxSocketsPerGroup();

base::Time CorvaneGetSystemTime();

// Milliseconds from `from` to `to`.
int CorvaneGetTimeDeltaInMs(const base::Time& from, const base::Time& to);

// The host's verbosity, asked before each message. Any thread.
int CorvaneGetVerboseLevel();
bool CorvaneIsVerboseEnabled();

// A new command, or null. It belongs to the plugin until CorvaneCmdCommitDelayed takes it over. The meaning
// of the third value is the host's; the plugin passes 0. Command thread.
CorvaneCmd* CorvaneCmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value);

// Append one parameter. The host copies the text; null stays null. Command thread.
void CorvaneCmdAddParamAsUint32(CorvaneCmd* cmd, unsigned int number);
void CorvaneCmdAddParamAsString(CorvaneCmd* cmd, const char* text);

// Hands the command to the host, which passes it to OnCmd once the delay is over. The unit of the delay is
// the host's: the plugin hands over the configured number. Command thread.
void CorvaneCmdCommitDelayed(CorvaneCmd* cmd, unsigned int delay);

#endif  // PLUGIN_CORVANE_H_
