// The plugin's switches and limits. Only OnInit writes them, before anything else runs; any thread may read.
#ifndef PLUGIN_PLUGIN_STATE_H_
#define PLUGIN_PLUGIN_STATE_H_

#include <cstdint>

namespace kiv {

struct PluginState {
  bool enabled = true;            // commands, flush and clear do something
  bool bypassEnabled = false;     // a repeated page request posts the bypass command
  bool cacheEnabled = false;      // responses are held and served
  bool preloaderEnabled = false;  // reported to the network stack, used nowhere else
  int32_t bypassDelay = 0;        // delay of the bypass command, in the host's unit
  int32_t cacheSizeLimit = 0;     // bytes that one held body may declare; see CacheSizeLimit()
  int32_t preloadLimit = 0;       // preloads in flight per host and port

  // The limit as an unsigned number of 64 bits, for comparisons with lengths.
  uint64_t CacheSizeLimit() const { return static_cast<uint32_t>(cacheSizeLimit); }
};

// The only record; the first call creates it. Any thread.
PluginState& GetPluginState();

// How many sockets of each host's group preloads leave free. Command thread.
extern int32_t idleSockets;

}  // namespace kiv

#endif  // PLUGIN_PLUGIN_STATE_H_
