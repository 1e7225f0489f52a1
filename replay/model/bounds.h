// The ways that are bounds: how early a load could come at best. They are computed, not simulated. In a
// simulation whoever shares the link at a bad moment makes a bound later than what a real way reaches; here
// no order can be better than what is assumed. Plain functions; any thread.
#ifndef REPLAY_MODEL_BOUNDS_H_
#define REPLAY_MODEL_BOUNDS_H_

#include <cstdint>
#include <functional>
#include <string>

#include "host/page_database.h"
#include "replay/model/results.h"
#include "replay/model/visit_setup.h"
#include "replay/model/ways.h"

namespace replay {

// Whether the browser's cache can answer for a URL, so long after the page's request.
using IsFresh = std::function<bool(const std::string& url, int64_t afterUs)>;

// `way` is one of those for which IsBound holds. `known`: what earlier visits have taught. Each time of the
// result, of the page and of its requests, is a bound by itself; together they need not be possible.
WayResult ComputeBound(Way way, const VisitSetup& setup, const host::KnownPage& known,
                       const IsFresh& isFresh);

}  // namespace replay

#endif  // REPLAY_MODEL_BOUNDS_H_
