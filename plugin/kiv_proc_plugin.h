// Everything that libkiv_proc_plugin.so exports: fifteen functions under plain, unmangled names.
//
// Results: 1 for done, handled or yes; 0 for not handled, refused or no. No exception leaves a function: out
// of memory, it answers 0 (or null), or its fixed 1 where it always returns 1, and every container stays
// whole.
//
// Threads. Command thread: the host calls OnInit, OnGetCmdMask, OnCmd, OnGetProcInfo, OnFetchDb, OnFlushDb,
// OnClearDb and FetchDone one at a time, never two of them at once (FetchDone gives a preload slot back in
// the host map, which has no lock of its own). The other functions may run on any thread, at the same time as
// each other and as those of the command thread. None may be called from inside CorvaneFetch.
//
// Order: OnInit once, then OnGetCmdMask, then the rest in any order. The library starts no thread and no
// timer, keeps everything in memory, and writes nothing to storage.
//
// End: every caller must have returned, and none may call again, before the library is unloaded or the
// process runs its static destructors (exit, or the return from main): what the library holds is destroyed
// then. A process that ends without them (_exit, a signal) needs no care. A forked child may use the library
// only if no other thread was inside it at the fork; otherwise its lock may stay taken for ever, and every
// call would block.
#ifndef PLUGIN_KIV_PROC_PLUGIN_H_
#define PLUGIN_KIV_PROC_PLUGIN_H_

#include <cstdint>
#include <string>

#include "plugin/corvane.h"

namespace net {
struct HttpRequestInfo;
}

#define KIV_EXPORT __attribute__((visibility("default")))

extern "C" {

// --- Plugin entry points ---

// Reads the eight system properties into the switches and limits. The argument is not used. Always 1. Calling
// it again reads everything again.
KIV_EXPORT int32_t OnInit(uint32_t value);

// Writes the command types to route to OnCmd, as bits 1 << type: 0x30C (types 2, 3, 8 and 9), whatever the
// mask held before; 0 when there was no memory for the command table. Until it was called OnCmd answers 0. A
// null mask is left alone. Always 1.
KIV_EXPORT int32_t OnGetCmdMask(uint32_t* mask);

// Handles one command and returns what its handler returns; 0 when the plugin is switched off, when no
// handler answers the type and action, or for null. The record and its texts need to live for the call only.
KIV_EXPORT int32_t OnCmd(CorvaneCmd* cmd);

// Replaces the contents of both strings with the plugin's name and version. Always 1.
KIV_EXPORT int32_t OnGetProcInfo(std::string& name, std::string& version);

// Does nothing. Always 1.
KIV_EXPORT int32_t OnFetchDb();

// Drops the known URLs whose presence in the disk cache was not confirmed, and every preload, finished or
// not; reports the ones that look stuck. Does nothing while switched off. The argument is not used. Always 1.
KIV_EXPORT int32_t OnFlushDb(uint32_t value);

// Forgets all known URLs and hosts; preloads in flight or held go on. Does nothing while switched off. The
// argument is not used. Always 1.
KIV_EXPORT int32_t OnClearDb(uint32_t value);

// 1 when both the cache and the preloader switch are on, whatever the main switch says. Any thread.
KIV_EXPORT int32_t IsPreloaderEnabled();

// --- Fetch callbacks ---
//
// Called by the fetcher for a fetch that CorvaneFetch started, with the cookie given there. A null cookie, or
// one whose preload has left the cache meanwhile, is refused. Any thread, but FetchDone on the command
// thread. A cookie comes back when its URL is launched again, so a fetch whose preload was flushed or
// released must not be carried on under it.

// The request to send: newly allocated with `new`, owned by the caller. Null when refused.
KIV_EXPORT net::HttpRequestInfo* FetchGetRequestInfo(void* cookie);

// Takes the response's headers. 1 to go on; 0 to have the fetch cancelled (a declared length above the limit,
// or none declared), after which FetchDone is still due. A null response, or one without headers, is refused.
// The response needs to live for the call only.
KIV_EXPORT int32_t FetchStartComplete(void* cookie, const CorvaneFetchResponse* response);

// Appends `count` bytes of body. 1 when they were stored, 0 when not: null bytes, a count of 0 or less, the
// cache switched off, a declared length above the limit, a size beyond 32 bits or no memory. What was stored
// before stays as it was, so the fetcher either offers the same bytes again or ends the fetch with a result
// other than 0; otherwise the body would have a hole. The bytes need to live for the call only.
KIV_EXPORT int32_t FetchReadComplete(void* cookie, const char* bytes, int32_t count);

// Ends the fetch; `result` is 0 for success. Only a successful fetch of status 200 with a body can be served
// afterwards. 1 when the preload was known. Command thread.
KIV_EXPORT int32_t FetchDone(void* cookie, int32_t result);

// --- Queries of the network stack ---
//
// Keyed by the URL's hash: a URL of the same hash is the same URL here. A null URL is refused. Any thread.

// Lends the held response of a URL. On 1, `headers` holds a copy of the raw header block (status line and
// header lines, each ended by a NUL byte, and one more NUL), `*body` points at the plugin's own bytes and
// `*length` is their number. On 0 nothing was written, but for one case: a response whose headers mention
// "text/html" is refused after its header block was copied. Null outputs are refused, and a body of more
// bytes than `*length` can count.
//
// A lent body stays readable until it is given back: each IsPreloaded that answered 1 is one loan, each
// ReleasePreloaded of that URL's hash returns one. Whatever removes the response in between (a flush, IsInDC,
// another borrower's release), its bytes are kept until the last loan of that hash has come back, but at most
// until the second OnFlushDb after the removal, which ends the loan. A reader is so safe through a flush that
// it did not expect, and what is never returned is bounded by what was lent between three flushes.
//
// Loans have no names, so: call ReleasePreloaded exactly once for each 1, also where it will answer 0, unless
// a flush has ended the loan; not for a URL that somebody else has borrowed and you have not; and do not
// touch the body afterwards.
KIV_EXPORT int32_t IsPreloaded(const char* url, std::string* headers, const char** body, int32_t* length);

// Returns one loan of the URL, if any is out, and removes the URL's preload, finished or not. 1 when a
// preload was removed; 0 when there was none. With the cache switched off it answers 0 and does neither.
KIV_EXPORT int32_t ReleasePreloaded(const char* url);

// 1 when a finished preload of the URL was held; it is removed without being handed out. Returns no loan.
KIV_EXPORT int32_t IsInDC(const char* url);
}

#endif  // PLUGIN_KIV_PROC_PLUGIN_H_
