// The interface of the host framework: the command record, the response record of a fetch, and the functions
// that the browser's network library exports. The plugin defines none of them.
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

// One parameter of a command. The host's record has more fields after this word, which the plugin does not
// read. The position of the parameter determines whether the word is a number or a pointer.
struct CorvaneCmdParam {
  uintptr_t value;
};

// A command. The host owns it, and the plugin uses it during one OnCmd call.
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

// What FetchStartComplete receives. The fetcher owns `headers`, which need not outlive the call.
struct CorvaneFetchResponse {
  const net::HttpResponseHeaders* headers;
};

// Returns the hash of a NUL-terminated URL, which depends on nothing but the text. Any thread.
uint32_t CorvaneHash(const char* url);

// Sets `hostPort` to the URL's host and port as one text. The same host and port always give the same text; a
// URL without a host gives the empty text. Any thread.
void CorvaneGetHostPortFromUrl(const std::string& url, std::string& hostPort);

// Starts the fetch that the cookie identifies, or returns 0 to refuse. Otherwise the fetcher will call the
// plugin's fetch callbacks with the cookie, later, from tasks of its own, and never from inside this call,
// because the plugin holds PreloadLock.
int CorvaneFetch(void* cookie, net::URLRequestContext* context);

// Return null as long as the network stack's IO message loop or the HTTP cache does not exist. Not owned.
void* CorvaneGetIoMessageLoop();
void* CorvaneGetHttpCache();

// Returns how many sockets the browser's pool allows per host and port.
int CorvaneGetMaxSocketsPerGroup();

base::Time CorvaneGetSystemTime();

// Returns the milliseconds from `from` to `to`.
int CorvaneGetTimeDeltaInMs(const base::Time& from, const base::Time& to);

// Return the host's verbosity, which is queried before each message. Any thread.
int CorvaneGetVerboseLevel();
bool CorvaneIsVerboseEnabled();

// Returns a new command, or null. The plugin owns it until CorvaneCmdCommitDelayed. The host defines the
// meaning of the third value; the plugin passes 0. Command thread.
CorvaneCmd* CorvaneCmdCreate(CorvaneCmdType type, CorvaneActionType action, unsigned int value);

// Append one parameter. The host copies the text, which may be null. Command thread.
void CorvaneCmdAddParamAsUint32(CorvaneCmd* cmd, unsigned int number);
void CorvaneCmdAddParamAsString(CorvaneCmd* cmd, const char* text);

// Transfers the command to the host, which passes it to OnCmd after the delay. The host defines the unit of
// the delay; the plugin passes the configured number. Command thread.
void CorvaneCmdCommitDelayed(CorvaneCmd* cmd, unsigned int delay);

#endif  // PLUGIN_CORVANE_H_
