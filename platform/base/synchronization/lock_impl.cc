#include "base/synchronization/lock_impl.h"

namespace base::internal {

LockImpl::LockImpl() = default;
LockImpl::~LockImpl() = default;
void LockImpl::Lock() {
  native_.lock();
}
void LockImpl::Unlock() {
  native_.unlock();
}

}  // namespace base::internal
