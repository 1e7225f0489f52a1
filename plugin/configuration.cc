#include "plugin/configuration.h"

#include "plugin/log.h"
#include "plugin/properties.h"

namespace kiv {
namespace {

const char* OnOff(bool enabled) {
  return enabled ? "Enabled" : "Disabled";
}

}  // namespace

// The report has a switch of its own, which is asked for each line.
#define KIV_REPORT(...) KIV_WRITE_IF(CorvaneIsVerboseEnabled(), ANDROID_LOG_INFO, __VA_ARGS__)

int32_t ReadConfiguration(PluginState& state) {
  state.enabled = ReadProperty(property::kOn) != 0;
  KIV_REPORT("%s", OnOff(state.enabled));
  state.bypassEnabled = ReadProperty(property::kBypassEnabled) != 0;
  KIV_REPORT("Bypass: %s", OnOff(state.bypassEnabled));
  state.bypassDelay = ReadProperty(property::kBypassDelay);
  KIV_REPORT("Bypass Delay: %d", state.bypassDelay);
  state.cacheSizeLimit = ReadProperty(property::kCacheSizeLimit);
  KIV_REPORT("Cache Size Limit: %d", state.cacheSizeLimit);
  state.preloadLimit = ReadProperty(property::kPreloadLimit);
  KIV_REPORT("Preloading Limit: %d", state.preloadLimit);
  idleSockets = ReadProperty(property::kIdleSockets);
  KIV_REPORT("Idle Sockets: %d", idleSockets);
  state.cacheEnabled = ReadProperty(property::kCacheEnabled) != 0;
  KIV_REPORT("Cache: %s", OnOff(state.cacheEnabled));
  state.preloaderEnabled = ReadProperty(property::kPreloaderEnabled) != 0;
  KIV_REPORT("Preloader: %s", OnOff(state.preloaderEnabled));
  return 1;
}

}  // namespace kiv
