// The choices of the host, each with its reason. Read once, when the host is made.
#ifndef HOST_SETTINGS_H_
#define HOST_SETTINGS_H_

#include <cstddef>
#include <cstdint>

namespace host {

struct HostSettings {
  // --- Connections and the link.

  // The socket pool's limit per group.
  int socketsPerGroup = 6;

  // How many of these the plugin is not told of, so that they stay the browser's. Preloads that nobody asks
  // for can hold their sockets through a slow server's whole think time, which hurrying them does not
  // shorten.
  int reservedSockets = 2;

  // Instead of that, how many sockets per group the plugin is told of; 0 for what remains of the above. Over
  // connections that multiplex, sockets are no bound, and the limit of preloads in flight alone counts.
  int pluginSockets = 0;

  // How much of the link all running preloads get together, beside one transfer of the browser. They have the
  // link to themselves while the browser transfers nothing.
  double preloadShare = 0.02;

  // A preload that holds a socket which a transaction of the browser waits for is made as urgent as that one,
  // so that the socket comes free: its bytes are most likely wanted soon, and a cancelled one would cost a
  // new connection.
  bool hurryBlockingPreloads = true;

  // Whether connections are opened ahead of the page's own requests.
  bool preconnect = true;

  // How long before the page first needed a connection on earlier visits it is opened. A set-up takes two or
  // three round trips, and what is preloaded makes the page ask earlier than it did.
  int64_t preconnectLeadMs = 2000;

  // Connections that nobody waits for yet are set up so many at a time, in all.
  size_t maxPreconnects = 8;

  // --- What is ordered, and who gets it.

  // A request for a URL whose preload is running waits for it, and makes it as urgent as itself, instead of
  // downloading the same bytes twice.
  bool joinRunning = true;

  // A resource is ordered, and a connection opened ahead, when more than this share of the page's earlier
  // visits have shown it. Below a half, more of what is fetched is never asked for than is; and what one of
  // two visits has shown is as likely to be gone as to have come to stay.
  double minSeenShare = 0.5;

  // On so many visits at least when its address looks as if it were new on every load (see
  // host/volatile_address.h).
  uint32_t minVolatileSeen = 2;

  // A load that has joined a preload goes to the network itself when the preload makes no progress for this
  // long: longer than slow servers think, shorter than people wait.
  int64_t joinPatienceMs = 10'000;

  // A preload that makes no progress for this long is given up, as browsers give up their own requests.
  int64_t fetchPatienceMs = 30'000;

  // A page counts as loading until this long after its last request. Preloads that it has not asked for by
  // then are dropped.
  int64_t settleAfterMs = 30'000;

  // --- Memory. The least recently visited goes first.

  size_t maxPages = 1000;            // that the page database knows; about 70 kB each when full of resources
  size_t maxResourcesPerPage = 500;  // the first ones of a visit
  size_t maxToldResources = 20'000;  // URLs that the plugin is made to remember as resources of pages
  size_t maxRequestHeaderBytes = 2000;  // remembered of a resource's last request; a longer text is not kept

  // The verbosity that the plugin is told. 0 logs warnings and errors only.
  int verboseLevel = 0;
};

}  // namespace host

#endif  // HOST_SETTINGS_H_
