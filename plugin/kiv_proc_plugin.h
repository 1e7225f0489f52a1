// Everything that libkiv_proc_plugin.so exports: fifteen functions with plain, unmangled names.
//
// Results: 1 means done, handled or yes; 0 means not handled, refused or no. No exception leaves a function.
// When it runs out of memory it returns 0 (or null), or 1 if it always returns 1, and every container stays
// consistent.
//
// Threads. Command thread: the host must never run two of OnInit, OnGetCmdMask, OnCmd, OnGetProcInfo,
// OnFetchDb, OnFlushDb, OnClearDb and FetchDone at the same time (FetchDone changes the host map, which no
// lock protects). The other functions may run on any thread, at the same time as each other and as those of
// the command thread. No function may be called from inside CorvaneFetch.
//
// Order: OnInit once, then OnGetCmdMask, then the others in any order. The library starts no thread and no
// timer, keeps everything in memory, and writes nothing to storage.
//
// End: every caller must have returned, and none may call again, before the library is unloaded or the
// process runs its static destructors (exit, or the return from main), which destroy the library's state. A
// process that ends without them (_exit, a signal) need not care. A forked child may use the library only if
// no other thread was inside it at the fork; otherwise its lock may stay taken for ever, and every call would
// block.
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

// Reads the eight system properties into the switches and limits; another call reads them again. The argument
// is not used. Always returns 1.
KIV_EXPORT int32_t OnInit(uint32_t value);

// Sets the mask to the command types that OnCmd handles, as bits 1 << type: 0x30C (types 2, 3, 8 and 9), or 0
// if there was no memory for the command table. OnCmd returns 0 until this function was called. The mask may
// be null. Always returns 1.
KIV_EXPORT int32_t OnGetCmdMask(uint32_t* mask);

// Handles one command and returns the result of its handler. Returns 0 when the plugin is switched off, when
// no handler exists for the type and action, or for null. The command need not outlive the call.
KIV_EXPORT int32_t OnCmd(CorvaneCmd* cmd);

// Sets both strings to the plugin's name and version. Always returns 1.
KIV_EXPORT int32_t OnGetProcInfo(std::string& name, std::string& version);

// Does nothing. Always returns 1.
KIV_EXPORT int32_t OnFetchDb();

// Drops the known URLs that were not confirmed to be in the disk cache, and every preload, finished or not;
// logs the stuck ones. Does nothing while switched off. The argument is not used. Always returns 1.
KIV_EXPORT int32_t OnFlushDb(uint32_t value);

// Forgets all known URLs and hosts; running and held preloads are kept. Does nothing while switched off. The
// argument is not used. Always returns 1.
KIV_EXPORT int32_t OnClearDb(uint32_t value);

// Returns 1 when both the cache and the preloader are switched on, even if the plugin is off. Any thread.
KIV_EXPORT int32_t IsPreloaderEnabled();

// --- Fetch callbacks ---
//
// The fetcher calls these for a fetch that CorvaneFetch started, with the same cookie. A null cookie is
// refused, and so is the cookie of a preload that has left the cache. Any thread, except that FetchDone runs
// on the command thread. The same cookie is used again when the URL is launched again, so a fetch whose
// preload was flushed or released must be cancelled.

// Returns the request to send, allocated with `new` and owned by the caller, or null when refused.
KIV_EXPORT net::HttpRequestInfo* FetchGetRequestInfo(void* cookie);

// Records the response's headers. Returns 1 to continue, or 0 when the fetch must be cancelled because it
// declares no length or one above the limit; FetchDone must still be called. A null response, or one without
// headers, is refused. The response need not outlive the call.
KIV_EXPORT int32_t FetchStartComplete(void* cookie, const CorvaneFetchResponse* response);

// Appends `count` bytes of body. Returns 1 if they were stored, else 0: null bytes, a count of 0 or less, the
// cache switched off, a declared length above the limit, a size beyond 32 bits, or no memory. What was stored
// before does not change. The fetcher must then offer the same bytes again, or end the fetch with a result
// other than 0; otherwise the body would have a hole. The bytes need not outlive the call.
KIV_EXPORT int32_t FetchReadComplete(void* cookie, const char* bytes, int32_t count);

// Ends the fetch; a `result` of 0 means success. Only a successful fetch with status 200 and a body can be
// served. Returns 1 if the preload was known. Command thread.
KIV_EXPORT int32_t FetchDone(void* cookie, int32_t result);

// --- Queries of the network stack ---
//
// URLs are identified by their hash: URLs with the same hash are the same. Null is refused. Any thread.

// Lends the held response of a URL. If it returns 1, `headers` is a copy of the raw header block (status line
// and header lines, each followed by a NUL byte, and another NUL), `*body` points to the plugin's own bytes
// and `*length` is their number. If it returns 0, nothing was written, with one exception: a response whose
// headers mention "text/html" is refused after its header block was copied. Null outputs are refused, and so
// is a body with more bytes than `*length` can count.
//
// A lent body stays readable until it is returned: each IsPreloaded that returned 1 is one loan, and each
// ReleasePreloaded of a URL with that hash returns one. If the response is removed in between (by a flush, by
// IsInDC, by another borrower), its bytes are kept until the last loan of the hash was returned, but at most
// until the second OnFlushDb after the removal, which ends the loan. So an unexpected flush harms no reader,
// and the bodies that are never returned are bounded by what was lent between three flushes.
//
// Loans are only counted. Therefore call ReleasePreloaded exactly once for each 1, even if it will return 0,
// unless a flush has ended the loan. Do not call it for a URL that only somebody else has borrowed. Do not
// touch the body afterwards.
KIV_EXPORT int32_t IsPreloaded(const char* url, std::string* headers, const char** body, int32_t* length);

// Ends one loan of the URL, if there is one, and removes the URL's preload, finished or not. Returns 1 if a
// preload was removed, else 0. While the cache is switched off it does nothing and returns 0.
KIV_EXPORT int32_t ReleasePreloaded(const char* url);

// Returns 1 if a finished preload of the URL was held, and removes it. Ends no loan.
KIV_EXPORT int32_t IsInDC(const char* url);
}

#endif  // PLUGIN_KIV_PROC_PLUGIN_H_
