#include "plugin/configuration.h"

#include <algorithm>
#include <cstdlib>

#include "cutils/properties.h"
#include "plugin/log.h"

namespace kiv {
namespace {

// atoi, with the overflow that it leaves undefined settled as a 32-bit long settles it: at the nearest limit.
int32_t DecimalInteger(const char* text) {
  return static_cast<int32_t>(std::clamp<long>(std::strtol(text, nullptr, 10), INT32_MIN, INT32_MAX));
}

const char* OnOff(bool enabled) {
  return enabled ? "Enabled" : "Disabled";
}

}  // namespace

// The report alone has a gate of its own, asked once per line.
#define KIV_REPORT(...) KIV_WRITE_IF(CorvaneIsVerboseEnabled(), ANDROID_LOG_INFO, __VA_ARGS__)

int32_t ReadConfiguration(PluginState& state) {
  char value[PROPERTY_VALUE_MAX];
  const auto read = [&value](const char* name, const char* fallback) {
    property_get(name, value, fallback);
    return DecimalInteger(value);
  };

  state.enabled = read("net.cv.kiv.on", "1") != 0;
  KIV_REPORT("%s", OnOff(state.enabled));
  state.bypassEnabled = read("net.cv.kiv.bypassen", "0") != 0;
  KIV_REPORT("Bypass: %s", OnOff(state.bypassEnabled));
  state.bypassDelay = read("net.cv.kiv.bypassdl", "50");
  KIV_REPORT("Bypass Delay: %d", state.bypassDelay);
  state.cacheSizeLimit = read("net.cv.kiv.cslimit", "2097152");
  KIV_REPORT("Cache Size Limit: %d", state.cacheSizeLimit);
  state.preloadLimit = read("net.cv.kiv.prlimit", "5");
  KIV_REPORT("Preloading Limit: %d", state.preloadLimit);
  idleSockets = read("net.cv.kiv.idlesock", "1");
  KIV_REPORT("Idle Sockets: %d", idleSockets);
  state.cacheEnabled = read("net.cv.kiv.cacheen", "1") != 0;
  KIV_REPORT("Cache: %s", OnOff(state.cacheEnabled));
  state.preloaderEnabled = read("net.cv.kiv.preloaderen", "1") != 0;
  KIV_REPORT("Preloader: %s", OnOff(state.preloaderEnabled));
  return 1;
}

}  // namespace kiv
