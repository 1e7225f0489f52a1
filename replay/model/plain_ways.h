// The ways of running a page that need no plugin. Each run has a clock and a network of its own. One thread.
#ifndef REPLAY_MODEL_PLAIN_WAYS_H_
#define REPLAY_MODEL_PLAIN_WAYS_H_

#include "host/page_database.h"
#include "replay/model/disk_cache.h"
#include "replay/model/results.h"
#include "replay/model/visit_setup.h"
#include "replay/model/ways.h"

namespace replay {

// Runs a visit in any way but Way::Plugin and the bounds, on the disk cache that this way's last visit has
// left. `known`: what earlier visits have taught; null for nothing.
WayResult RunPlainWay(Way way, const VisitSetup& setup, const host::KnownPage* known, DiskCache& diskCache);

}  // namespace replay

#endif  // REPLAY_MODEL_PLAIN_WAYS_H_
