// Every command that the plugin takes: its type and action, and what each of its parameters is. The command
// table, the handlers and everybody who builds a command use these names; the numbers stand only here.
//
// Parameters are known by position alone. A command may carry fewer of them than are listed: an absent number
// then reads as 0 and an absent text or pointer as null.
#ifndef PLUGIN_COMMANDS_H_
#define PLUGIN_COMMANDS_H_

#include <cstddef>
#include <cstdint>

#include "plugin/corvane.h"

namespace kiv {

struct CommandId {
  CorvaneCmdType type;
  CorvaneActionType action;
};

// Where a parameter stands, and what it is.
struct NumberParam {
  size_t position;
};
struct TextParam {  // NUL-terminated; the host's, for the length of the OnCmd call
  size_t position;
};
template <typename Object>
struct PointerParam {  // not owned
  size_t position;
};

namespace command {

// The types; an action means something only within its type.
inline constexpr CorvaneCmdType kDiskCacheType = 2;
inline constexpr CorvaneCmdType kPageType = 3;
inline constexpr CorvaneCmdType kPreloadType = 8;
inline constexpr CorvaneCmdType kTransactionType = 9;

// What the plugin's own orders carry, and what other orders should carry where nothing else is known.
inline constexpr uint32_t kDefaultPriority = 512;
inline constexpr uint32_t kDefaultLoadFlags = 0x800000;

// --- The disk cache.

// The disk cache holds the response of a URL from now on, or has dropped it.
struct CacheStatus {
  static constexpr CommandId kId = {kDiskCacheType, 13};
  static constexpr NumberParam kUrlHash = {0};
  static constexpr NumberParam kHeld = {1};  // 0: dropped, and so forgotten here as well
};

// --- Pages.

// A sub-resource was seen on a page.
struct ResourceSeen {
  static constexpr CommandId kId = {kPageType, 5};
  static constexpr TextParam kPageUrl = {0};  // absent: the command is ignored
  static constexpr TextParam kUrl = {1};      // absent: the command is ignored
  // Parameter 2 is not read. The resource is also queued for preloading when kNoPreload is 0 and kPreload is
  // not.
  static constexpr NumberParam kNoPreload = {3};
  static constexpr NumberParam kPreload = {4};
};

// The queued preloads of a URL are not wanted any more.
struct WithdrawPreloads {
  static constexpr CommandId kId = {kPageType, 8};
  static constexpr NumberParam kUrlHash = {0};
};

// The browser requests a page.
struct PageRequested {
  static constexpr CommandId kId = {kPageType, 9};
  static constexpr TextParam kUrl = {0};      // absent: the command is ignored
  static constexpr TextParam kMethod = {1};   // absent: not a GET
  static constexpr TextParam kHeaders = {2};  // header lines; they go back to the plugin with its own order
};

// --- Preloads.

// The host has seen the request for a URL. For a page, its context and headers are kept for the preloads that
// the page orders.
struct RequestSeen {
  static constexpr CommandId kId = {kPreloadType, 1};
  static constexpr TextParam kUrl = {0};      // absent: the empty URL
  static constexpr TextParam kHeaders = {1};  // header lines; absent: none
  // Parameter 2 is not read.
  static constexpr PointerParam<net::URLRequestContext> kContext = {3};  // absent: its preloads are refused
};

// Launch what fits into the free sockets now. No parameters.
struct CheckPreloads {
  static constexpr CommandId kId = {kPreloadType, 4};
};

// The message loop and the HTTP cache exist now: start the fetches that waited for them. No parameters.
struct StartDelayedFetches {
  static constexpr CommandId kId = {kPreloadType, 20};
};

// Preload a URL. The plugin posts this command to itself as well, for a page that is requested again.
struct OrderPreload {
  static constexpr CommandId kId = {kPreloadType, 21};
  static constexpr NumberParam kPriority = {0};  // smaller leaves the queue first
  static constexpr TextParam kUrl = {1};         // absent: the empty URL
  static constexpr NumberParam kPageHash = {2};  // whose context and headers the fetch uses; 0: no page
  static constexpr NumberParam kLoadFlags = {3};
  static constexpr TextParam kHeaders = {4};  // read for an order without a page, which is refused without it
};

// --- The browser's own network transactions.

struct TransactionStarted {
  static constexpr CommandId kId = {kTransactionType, 1};
  static constexpr TextParam kUrl = {0};  // absent: the command is ignored
  // Parameter 1 is not read.
  static constexpr NumberParam kTransactionId = {2};
};

struct TransactionDone {
  static constexpr CommandId kId = {kTransactionType, 4};
  static constexpr TextParam kUrl = {0};              // absent: the command is ignored
  static constexpr NumberParam kTransactionId = {1};  // not the position that it has at the start
};

}  // namespace command
}  // namespace kiv

#endif  // PLUGIN_COMMANDS_H_
