// Which queued preloads start now. Command thread.
#ifndef PRELOAD_PRELOAD_SCHEDULING_H_
#define PRELOAD_PRELOAD_SCHEDULING_H_

namespace kiv {

// Visits every host: launches what its free sockets and the preload limit allow, and drops a host that has
// nothing left to do. PreloadLock is taken inside each launch, never around the walk.
void CheckPreload();

}  // namespace kiv

#endif  // PRELOAD_PRELOAD_SCHEDULING_H_
