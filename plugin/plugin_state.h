// The plugin's switches and limits. Written by OnInit alone, before anything else runs; read on any thread.
#ifndef PLUGIN_PLUGIN_STATE_H_
#define PLUGIN_PLUGIN_STATE_H_

#include <cstdint>

namespace kiv {

struct PluginState {
  bool enabled = true;            // commands, flush and clear do something
  bool bypassEnabled = false;     // a repeated page request posts the bypass command
  bool cacheEnabled = false;      // responses are held and served
  bool preloaderEnabled = false;  // answered to the network stack, used nowhere else
  int32_t bypassDelay = 0;        // delay of the bypass command, in the host's unit
  int32_t cacheSizeLimit = 0;     // bytes that one held body may declare; see CacheSizeLimit()
  int32_t preloadLimit = 0;       // preloads in flight per host and port

  // The limit as lengths are compared with it: read without sign, widened to 64 bits.
  uint64_t CacheSizeLimit() const { return static_cast<uint32_t>(cacheSizeLimit); }
};

// The one record, made on the first call (from any thread, once).
PluginState& GetPluginState();

// Sockets of each host's group that preloads leave free. Command thread.
extern int32_t idleSockets;

}  // namespace kiv

#endif  // PLUGIN_PLUGIN_STATE_H_
