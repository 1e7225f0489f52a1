// The eight system properties, read into PluginState and idleSockets. Command thread.
#ifndef PLUGIN_CONFIGURATION_H_
#define PLUGIN_CONFIGURATION_H_

#include <cstdint>

#include "plugin/plugin_state.h"

namespace kiv {

// Reads and reports each property and overwrites its value. Non-numeric values are read as 0.
// Always returns 1.
int32_t ReadConfiguration(PluginState& state);

}  // namespace kiv

#endif  // PLUGIN_CONFIGURATION_H_
