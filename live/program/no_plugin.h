// Replaces a plugin that cannot be loaded: pages load, but nothing is preloaded. Any thread.
#ifndef LIVE_PROGRAM_NO_PLUGIN_H_
#define LIVE_PROGRAM_NO_PLUGIN_H_

#include "host/plugin_functions.h"

namespace live {

// Functions that refuse everything.
host::PluginFunctions NoPlugin();

}  // namespace live

#endif  // LIVE_PROGRAM_NO_PLUGIN_H_
