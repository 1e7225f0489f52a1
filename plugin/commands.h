// Every command that the plugin handles: its type, its action, and the meaning of each parameter. The command
// table, the handlers and all code that builds commands use these names; only this file has the numbers.
//
// Parameters are identified by position. A command may have fewer parameters than are listed: absent numbers
// are read as 0, absent texts and pointers as null.
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

// The position and the type of a parameter.
struct NumberParam {
  size_t position;
};
struct TextParam {  // NUL-terminated; owned by the host, valid during the OnCmd call
  size_t position;
};
template <typename Object>
struct PointerParam {  // not owned
  size_t position;
};

namespace command {

// The types. The meaning of an action depends on the type.
inline constexpr CorvaneCmdType kDiskCacheType = 2;
inline constexpr CorvaneCmdType kPageType = 3;
inline constexpr CorvaneCmdType kPreloadType = 8;
inline constexpr CorvaneCmdType kTransactionType = 9;

// The values in the plugin's own orders, and in other orders when nothing better is known.
inline constexpr uint32_t kDefaultPriority = 512;
inline constexpr uint32_t kDefaultLoadFlags = 0x800000;

// --- The disk cache.

// The disk cache now holds the response of a URL, or has dropped it.
struct CacheStatus {
  static constexpr CommandId kId = {kDiskCacheType, 13};
  static constexpr NumberParam kUrlHash = {0};
  static constexpr NumberParam kHeld = {1};  // 0: dropped, and the plugin forgets it as well
};

// --- Pages.

// A sub-resource was seen on a page.
struct ResourceSeen {
  static constexpr CommandId kId = {kPageType, 5};
  static constexpr TextParam kPageUrl = {0};  // absent: the command is ignored
  static constexpr TextParam kUrl = {1};      // absent: the command is ignored
  // Parameter 2 is not used. The resource is also queued for preloading if kNoPreload is 0 and kPreload is
  // not 0.
  static constexpr NumberParam kNoPreload = {3};
  static constexpr NumberParam kPreload = {4};
};

// The queued preloads of a URL are no longer needed.
struct WithdrawPreloads {
  static constexpr CommandId kId = {kPageType, 8};
  static constexpr NumberParam kUrlHash = {0};
};

// The browser requests a page.
struct PageRequested {
  static constexpr CommandId kId = {kPageType, 9};
  static constexpr TextParam kUrl = {0};      // absent: the command is ignored
  static constexpr TextParam kMethod = {1};   // absent: not a GET
  static constexpr TextParam kHeaders = {2};  // header lines; the plugin's own order returns them
};

// --- Preloads.

// The host has seen the request for a URL. For a page, the context and the headers are kept for the preloads
// that are ordered for the page.
struct RequestSeen {
  static constexpr CommandId kId = {kPreloadType, 1};
  static constexpr TextParam kUrl = {0};      // absent: the empty URL
  static constexpr TextParam kHeaders = {1};  // header lines; absent: none
  // Parameter 2 is not used.
  static constexpr PointerParam<net::URLRequestContext> kContext = {3};  // absent: its preloads are refused
};

// Launch the queued preloads that fit into the free sockets. No parameters.
struct CheckPreloads {
  static constexpr CommandId kId = {kPreloadType, 4};
};

// The message loop and the HTTP cache now exist: start the fetches that waited for them. No parameters.
struct StartDelayedFetches {
  static constexpr CommandId kId = {kPreloadType, 20};
};

// Preload a URL. The plugin also posts this command to itself, for a page that is requested again.
struct OrderPreload {
  static constexpr CommandId kId = {kPreloadType, 21};
  static constexpr NumberParam kPriority = {0};  // the smallest is launched first
  static constexpr TextParam kUrl = {1};         // absent: the empty URL
  static constexpr NumberParam kPageHash = {2};  // the page whose context and headers are used; 0: no page
  static constexpr NumberParam kLoadFlags = {3};
  static constexpr TextParam kHeaders = {4};  // only for an order without a page, which requires it
};

// --- The browser's own network transactions.

struct TransactionStarted {
  static constexpr CommandId kId = {kTransactionType, 1};
  static constexpr TextParam kUrl = {0};  // absent: the command is ignored
  // Parameter 1 is not used.
  static constexpr NumberParam kTransactionId = {2};
};

struct TransactionDone {
  static constexpr CommandId kId = {kTransactionType, 4};
  static constexpr TextParam kUrl = {0};              // absent: the command is ignored
  static constexpr NumberParam kTransactionId = {1};  // at another position than in TransactionStarted
};

}  // namespace command
}  // namespace kiv

#endif  // PLUGIN_COMMANDS_H_
