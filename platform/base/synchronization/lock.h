// base::Lock and its scoped holder, annotated so that clang can check who holds a lock. Any thread.
#ifndef BASE_SYNCHRONIZATION_LOCK_H_
#define BASE_SYNCHRONIZATION_LOCK_H_

#include "base/synchronization/lock_impl.h"
#include "base/thread_annotations.h"

namespace base {

// A lock that is not recursive. Prefer AutoLock to direct calls.
class LOCKABLE Lock {
 public:
  Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void Acquire() EXCLUSIVE_LOCK_FUNCTION() { lock_.Lock(); }
  void Release() UNLOCK_FUNCTION() { lock_.Unlock(); }

 private:
  internal::LockImpl lock_;
};

// Holds a Lock from construction to the end of the scope.
class SCOPED_LOCKABLE AutoLock {
 public:
  explicit AutoLock(Lock& lock) EXCLUSIVE_LOCK_FUNCTION(lock) : lock_(lock) { lock_.Acquire(); }
  ~AutoLock() UNLOCK_FUNCTION() { lock_.Release(); }
  AutoLock(const AutoLock&) = delete;
  AutoLock& operator=(const AutoLock&) = delete;

 private:
  Lock& lock_;
};

}  // namespace base

#endif  // BASE_SYNCHRONIZATION_LOCK_H_
