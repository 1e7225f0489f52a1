#include "live/proxy/front/request_body.h"

#include <algorithm>
#include <utility>

namespace live {

int64_t RequestBody::Read(char* buffer, size_t size) {
  const size_t count = std::min(size, Waiting());
  std::copy_n(bytes_.data() + taken_, count, buffer);
  taken_ += count;
  if (taken_ == bytes_.size()) {
    bytes_.clear();
    taken_ = 0;
  }
  const bool nothingYet = count == 0 && !ended_ && !failed_;
  readerWaits_ = nothingYet;
  if (onRead_) onRead_();
  if (count > 0) return static_cast<int64_t>(count);
  if (nothingYet) return -1;
  return failed_ ? -2 : 0;
}

void RequestBody::Add(std::string_view bytes) {
  bytes_.erase(0, std::exchange(taken_, 0));
  bytes_.append(bytes);
  WakeUpReader();
}

void RequestBody::End() {
  ended_ = true;
  WakeUpReader();
}

void RequestBody::Abandon() {
  onRead_ = nullptr;
  failed_ = !ended_;
  WakeUpReader();
}

void RequestBody::WakeUpReader() {
  if (std::exchange(readerWaits_, false) && onReadable) onReadable();
}

}  // namespace live
