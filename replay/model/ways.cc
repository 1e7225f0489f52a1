#include "replay/model/ways.h"

namespace replay {
namespace {

constexpr PerWay<WayWords> kWords = {{
    {"off", "the browser without the plugin"},
    {"plugin", "with it"},
    {"hints", "everything known is requested at the document's first byte, as server hints would have it"},
    {"preconnect", "without the plugin, but connections are opened ahead as with it"},
    {"reachable",
     "what can be held arrives over the link from the page's request on, without round trips, "
     "and every connection but the document's is open: a bound for every preloader"},
    {"oracle", "everything known is in memory and every connection is open: a bound that nobody reaches"},
}};

}  // namespace

const WayWords& WordsFor(Way way) {
  return kWords[Index(way)];
}

}  // namespace replay
