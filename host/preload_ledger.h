// What became of each resource that the host thought of preloading on the current page: plain records, kept
// from one page request to the next. Executor's thread.
#ifndef HOST_PRELOAD_LEDGER_H_
#define HOST_PRELOAD_LEDGER_H_

#include <cstdint>
#include <map>
#include <string>

#include "base/time/time.h"
#include "host/resource_kind.h"
#include "host/transport.h"

namespace host {

// Why a known resource was not ordered.
enum class NotOrdered {
  None,  // it was
  SwitchedOff,
  SeenTooSeldom,
  FreshInDiskCache,
  NotGet,
  Html,
  StatusNot200,
  NoDeclaredLength,
  OverSizeLimit,
  EmptyBody,
  NoContext,   // the page came without a request context
  SharesHash,  // another URL that was ordered has the same hash
};

enum class PreloadStage {
  NotOrdered,
  Ordered,   // waits in the plugin's queue
  Launched,  // the plugin has asked for the fetch
  Held,      // complete, in the plugin's memory
  Failed,    // ended in any other way
};

struct PreloadRecord {
  std::string url;
  ResourceKind kind = ResourceKind::Other;
  NotOrdered notOrdered = NotOrdered::None;
  PreloadStage stage = PreloadStage::NotOrdered;
  bool cancelled = false;     // the plugin refused the response
  bool joined = false;        // a request waited for it
  bool used = false;          // a request got it
  bool limitReached = false;  // never launched, and not only for the browser's own transactions
  int status = -1;            // of the response, once there was one
  int64_t declaredLength = -1;
  bool html = false;
  base::Time ordered;
  base::Time launched;
  base::Time ended;
  TransferId transfer = 0;  // 0 until the fetcher has taken it up
};

// By URL.
using PreloadLedger = std::map<std::string, PreloadRecord>;

}  // namespace host

#endif  // HOST_PRELOAD_LEDGER_H_
