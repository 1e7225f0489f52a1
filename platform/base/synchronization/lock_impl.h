// The mutex behind base::Lock: not recursive, any thread.
#ifndef BASE_SYNCHRONIZATION_LOCK_IMPL_H_
#define BASE_SYNCHRONIZATION_LOCK_IMPL_H_

#include <mutex>

namespace base::internal {

class LockImpl {
 public:
  LockImpl();
  // NOLINTNEXTLINE(performance-trivially-destructible): the destructor is a symbol of the real class
  ~LockImpl();
  LockImpl(const LockImpl&) = delete;
  LockImpl& operator=(const LockImpl&) = delete;

  // Blocks until the calling thread owns the lock. The owner must not call it again before Unlock().
  void Lock();
  // Only the owner may call it.
  void Unlock();

 private:
  std::mutex native_;
};

}  // namespace base::internal

#endif  // BASE_SYNCHRONIZATION_LOCK_IMPL_H_
