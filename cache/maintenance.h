// The sweeps behind OnFlushDb and OnClearDb. Command thread.
#ifndef CACHE_MAINTENANCE_H_
#define CACHE_MAINTENANCE_H_

#include <cstdint>

#include "cache/preload_cache.h"
#include "plugin/plugin_state.h"

namespace kiv {

// Drops the known URLs that the disk cache has not confirmed, then every preload, and reports stuck ones.
// Does nothing while switched off. Holds PreloadLock while it drops preloads. Always returns 1.
int32_t Flush(const PluginState& state) LOCKS_EXCLUDED(PreloadLock);

// Forgets all known URLs and hosts but keeps the preloads. Does nothing while switched off. Takes no lock.
// Always returns 1.
int32_t Clear(const PluginState& state);

}  // namespace kiv

#endif  // CACHE_MAINTENANCE_H_
