// Decides which of a page's known resources to preload, in which order, and why not the others: a pure
// function of what is known when the page is requested.
#ifndef HOST_ORDER_POLICY_H_
#define HOST_ORDER_POLICY_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/not_served.h"
#include "host/page_database.h"
#include "host/settings.h"

namespace host {

// What the decision depends on besides the page.
struct OrderFacts {
  bool pluginTakesOrders = true;  // its switches are on
  uint64_t sizeLimit = 0;         // bytes of one body that it holds
  bool hasContext = true;         // the page's request has a context, and is a GET
  // Whether the browser's own cache can answer for a URL without asking the server.
  std::function<bool(const std::string& url)> isFresh;
  // The embedder's own reasons against an order; may be empty.
  std::function<NotServed(const KnownResource& resource)> whyNot;
};

// Whether something was seen on so many of the page's visits that the next one is likely to need it.
bool IsSeenOften(const KnownPage& page, uint32_t visitsSeen, const HostSettings& settings);

// Why the plugin could not hold the resource's response, judged by its last request and response, or None if
// it could. `sizeLimit` is that of OrderFacts.
NotServed WhyNotHoldable(const KnownResource& resource, uint64_t sizeLimit);

struct OrderDecision {
  size_t resource;        // index in KnownPage::resources
  NotServed why;          // None: order it
  uint32_t priority = 0;  // of an order: the smallest goes first
};

// Returns one decision for each resource: first the orders, in the order of sending, then the others.
std::vector<OrderDecision> DecideOrders(const KnownPage& page, const OrderFacts& facts,
                                        const HostSettings& settings);

}  // namespace host

#endif  // HOST_ORDER_POLICY_H_
