// What happened to each resource that the host considered for preloading on a page: plain records, which only
// CorvaneRuntime writes. Executor's thread.
#ifndef HOST_PRELOAD_LEDGER_H_
#define HOST_PRELOAD_LEDGER_H_

#include <cstdint>
#include <map>
#include <string>

#include "base/time/time.h"
#include "host/not_served.h"
#include "host/resource_kind.h"
#include "host/transport.h"

namespace host {

enum class PreloadStage {
  NotOrdered,
  Ordered,   // waits in the plugin's queue
  Launched,  // the plugin has asked for the fetch
  Held,      // complete, in the plugin's memory
  Failed,    // ended in any other way
  Dropped,   // by the host, before anybody could use it
};

struct PreloadRecord {
  std::string url;
  uint64_t orderId = 0;  // of its order, never used again; 0 when it was not ordered
  ResourceKind kind = ResourceKind::Other;
  NotServed notOrdered = NotServed::None;  // why not, when it was not
  PreloadStage stage = PreloadStage::NotOrdered;
  bool refused = false;       // the plugin does not hold the response
  bool joined = false;        // a load waited for it
  bool used = false;          // a load has used the held response
  bool invalidated = false;   // a request has changed what the URL stands for
  bool limitReached = false;  // never launched, and not only for the browser's own transactions
  bool withCredentials = true;
  std::string headersToRepeat;  // see host/reuse_rules.h
  std::string sentHeaders;      // header lines that it was sent with; empty before
  std::string responseBlock;    // raw; empty before the response
  int status = -1;              // of the response, once there was one
  int64_t declaredLength = -1;
  base::Time ordered;
  base::Time launched;
  TransferReport transfer;  // filled in when the transfer has ended
};

// By URL.
using PreloadLedger = std::map<std::string, PreloadRecord>;

// Why a request went to the network although its URL may have been preloaded. Null means that the page's
// ledger has no record of it.
NotServed WhyNotAtHand(const PreloadRecord* record);

}  // namespace host

#endif  // HOST_PRELOAD_LEDGER_H_
