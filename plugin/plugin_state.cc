#include "plugin/plugin_state.h"

namespace kiv {

int32_t idleSockets = 1;

PluginState& GetPluginState() {
  static PluginState state;
  return state;
}

}  // namespace kiv
