// The choices of the host, each with its reason. Read once, when the host is made.
#ifndef HOST_SETTINGS_H_
#define HOST_SETTINGS_H_

namespace host {

struct HostSettings {
  // The socket pool's limit per host and port.
  int socketsPerGroup = 6;

  // How many of these the plugin is not told of, so that they stay the browser's. Preloads that nobody asks
  // for can hold their sockets through a slow server's whole think time, which hurrying them does not
  // shorten.
  int reservedSockets = 2;

  // A request for a URL whose preload is running waits for it, and makes it as urgent as itself, instead of
  // downloading the same bytes twice.
  bool joinRunning = true;

  // How much of the link all running preloads get together, beside one transfer of the browser: the fetcher
  // pauses its reads to yield. They have the link to themselves while the browser transfers nothing.
  double preloadShare = 0.02;

  // A preload that holds a socket which a transaction of the browser waits for is made as urgent as that one,
  // so that the socket comes free: its bytes are most likely wanted soon, and a cancelled one would cost a
  // new connection.
  bool hurryBlockingPreloads = true;

  // A resource is ordered when it was seen on at least this share of the page's earlier visits. Below a half,
  // more of what is fetched is never asked for than is.
  double minSeenShare = 0.5;

  // The fetcher's transactions are announced to the plugin (type 9) like the browser's own. Without it the
  // plugin forgets a host whose queue is empty while preloads to it are still in flight, counts the next ones
  // from 0, and then warns of unbalanced preloading; with it, preloads and the browser's transactions
  // together stay within the sockets of the group.
  bool announcePreloads = true;

  // A flush before each page drops what the last page left behind: a body that nobody asked for would
  // otherwise be served, stale, on a later visit.
  bool flushBeforePage = true;

  // The verbosity that the plugin is told. 0 logs warnings and errors only.
  int verboseLevel = 0;
};

}  // namespace host

#endif  // HOST_SETTINGS_H_
