// The ways of running a page without the plugin. Each run has its own clock and network. One thread.
#ifndef REPLAY_MODEL_PLAIN_WAYS_H_
#define REPLAY_MODEL_PLAIN_WAYS_H_

#include "host/page_database.h"
#include "replay/model/disk_cache.h"
#include "replay/model/results.h"
#include "replay/model/visit_setup.h"
#include "replay/model/ways.h"

namespace replay {

// Runs a visit in any way except Way::Plugin and the bounds, with the disk cache as the last visit in this
// way has left it. `known` is what earlier visits have taught; null for nothing.
WayResult RunPlainWay(Way way, const VisitSetup& setup, const host::KnownPage* known, DiskCache& diskCache);

}  // namespace replay

#endif  // REPLAY_MODEL_PLAIN_WAYS_H_
