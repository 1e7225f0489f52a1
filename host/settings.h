// The settings of the host, each with its reason. They are read once, when the host is created.
#ifndef HOST_SETTINGS_H_
#define HOST_SETTINGS_H_

#include <cstddef>
#include <cstdint>

namespace host {

struct HostSettings {
  // --- Connections and the link.

  // The socket pool's limit per group.
  int socketsPerGroup = 6;

  // How many of these sockets the plugin does not know about, so that the browser can always use them. A
  // preload that nobody asks for can hold its socket until a slow server answers, and a higher urgency does
  // not shorten that.
  int reservedSockets = 2;

  // How many sockets per group the plugin is told; 0 for the difference of the two settings above. Sockets do
  // not limit connections that multiplex; there, only the limit on running preloads counts.
  int pluginSockets = 0;

  // The share of the link that all running preloads together get beside one transfer of the browser. While
  // the browser transfers nothing, preloads have the whole link.
  double preloadShare = 0.02;

  // Whether a preload becomes as urgent as a transaction of the browser that waits for its socket, so that
  // the socket becomes free. The alternative, cancelling the preload, would cost a new connection, and its
  // bytes are most likely needed soon.
  bool hurryBlockingPreloads = true;

  // Whether connections are opened ahead of the page's own requests.
  bool preconnect = true;

  // How long before the page needs a connection it is opened, by the times of the last visit that requested
  // each resource. A
  // set-up takes two or three round trips, and preloads make the page ask earlier than before. Over 13
  // recordings, half of it makes loads on 3g 0.6% longer; more of it gains at most 1% there and nothing
  // elsewhere, for a sixth more connections that nobody uses.
  int64_t preconnectLeadMs = 2000;

  // How many connections that nobody waits for yet are set up at the same time, over all groups. Anything
  // from 4 to 64 makes a difference of at most 0.3% to the plugin; with 2, connections alone gain a third
  // less.
  size_t maxPreconnects = 8;

  // --- What is ordered, and who gets it.

  // Whether a request for a URL whose preload is running waits for that preload, and makes it as urgent as
  // itself, instead of downloading the same bytes again.
  bool joinRunning = true;

  // A resource is ordered, and a connection is opened ahead, if more than this share of the page's earlier
  // visits needed it. With a share below a half, most of what is fetched would never be asked for, and a
  // resource that one of two visits needed is as likely to be gone as to be permanent.
  double minSeenShare = 0.5;

  // On how many visits a resource must have been seen if its URL looks as if it were new on every load (see
  // host/volatile_address.h). Stylesheets and fonts are exempt: their digits are versions, and if they
  // were left out, the page would request them itself, share the link with preloads, and paint later than
  // without preloading.
  uint32_t minVolatileSeen = 2;

  // A load that has joined a preload goes to the network itself if the preload makes no progress for this
  // long. That is longer than slow servers need to answer, and shorter than people wait.
  int64_t joinPatienceMs = 10'000;

  // A preload that makes no progress for this long is cancelled, as browsers cancel their own requests.
  int64_t fetchPatienceMs = 30'000;

  // For how long after its last request a page counts as loading. Preloads that it has not asked for by then
  // are dropped.
  int64_t settleAfterMs = 30'000;

  // --- Memory. If a bound is reached, the least recently visited is removed first.

  size_t maxPages = 1000;               // in the page database; at most about 70 kB each
  size_t maxResourcesPerPage = 500;     // those of a visit that come first are kept
  size_t maxToldResources = 20'000;     // URLs that the plugin is made to remember as resources of pages
  size_t maxRequestHeaderBytes = 2000;  // of a resource's last request; longer texts are not kept

  // The log level of the plugin. At 0 it logs only warnings and errors.
  int verboseLevel = 0;
};

}  // namespace host

#endif  // HOST_SETTINGS_H_
