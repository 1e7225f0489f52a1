// The eight system properties: their names, their defaults, and how they are read. The plugin, the host, the
// programs' options and the documentation all follow this table. Any thread.
#ifndef PLUGIN_PROPERTIES_H_
#define PLUGIN_PROPERTIES_H_

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include "cutils/properties.h"

namespace kiv {

struct Property {
  const char* name;
  const char* fallback;  // the value of a property that is not set
  int64_t least;         // the values that make sense. The plugin takes any text: see ReadProperty
  int64_t most;
  const char* meaning;
};

namespace property {

inline constexpr Property kOn = {"net.cv.kiv.on", "1", 0, 1, "commands, flush and clear do something"};
inline constexpr Property kBypassEnabled = {"net.cv.kiv.bypassen", "0", 0, 1,
                                            "a repeated page request posts the bypass command"};
inline constexpr Property kBypassDelay = {"net.cv.kiv.bypassdl", "50", 0, INT32_MAX,
                                          "the delay of the bypass command, in the host's unit"};
inline constexpr Property kCacheSizeLimit = {"net.cv.kiv.cslimit", "2097152", 0, INT32_MAX,
                                             "bytes that the body of one preload may declare"};
inline constexpr Property kPreloadLimit = {"net.cv.kiv.prlimit", "5", 0, INT32_MAX,
                                           "preloads in flight per host and port"};
inline constexpr Property kIdleSockets = {"net.cv.kiv.idlesock", "1", 0, INT32_MAX,
                                          "sockets per host and port that preloads leave free"};
inline constexpr Property kCacheEnabled = {"net.cv.kiv.cacheen", "1", 0, 1, "responses are held and served"};
inline constexpr Property kPreloaderEnabled = {"net.cv.kiv.preloaderen", "1", 0, 1,
                                               "with cacheen, what IsPreloaderEnabled answers"};

// In the order in which OnInit reads them.
inline constexpr std::array kAll = {kOn,           kBypassEnabled, kBypassDelay,  kCacheSizeLimit,
                                    kPreloadLimit, kIdleSockets,   kCacheEnabled, kPreloaderEnabled};

}  // namespace property

// The property's value, parsed like atoi: non-numeric values are read as 0. Values that do not fit, for which
// atoi is undefined, become the nearest limit.
inline int32_t ReadProperty(const Property& property) {
  char text[PROPERTY_VALUE_MAX];
  property_get(property.name, text, property.fallback);
  return static_cast<int32_t>(std::clamp<long long>(std::strtoll(text, nullptr, 10), INT32_MIN, INT32_MAX));
}

}  // namespace kiv

#endif  // PLUGIN_PROPERTIES_H_
