// Which queued preloads start now. Command thread.
#ifndef PRELOAD_PRELOAD_SCHEDULING_H_
#define PRELOAD_PRELOAD_SCHEDULING_H_

namespace kiv {

// For each host: launches what its free sockets and the preload limit allow, and removes the host if nothing
// is left to do for it. PreloadLock is taken for each launch, never for the whole loop.
void CheckPreload();

}  // namespace kiv

#endif  // PRELOAD_PRELOAD_SCHEDULING_H_
