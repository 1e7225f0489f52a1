// Code that clang's thread-safety analysis has to refuse as it stands, and to accept with HOLD_LOCK defined:
// the proof that the analysis is awake. Linked into nothing.
#include "cache/preload_cache.h"

size_t CountPreloads() {
#ifdef HOLD_LOCK
  const base::AutoLock hold(kiv::PreloadLock);
#endif
  return kiv::PreloadCache.size();
}
