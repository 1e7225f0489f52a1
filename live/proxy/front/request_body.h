// The body of a request between the browser's socket and the transfer that uploads it. Loop's thread.
#ifndef LIVE_PROXY_FRONT_REQUEST_BODY_H_
#define LIVE_PROXY_FRONT_REQUEST_BODY_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "host/transport.h"

namespace live {

// May outlive the connection, which then calls Abandon.
class RequestBody final : public host::UploadBody {
 public:
  // `onRead` is called from inside each Read, so it must not call the handler.
  RequestBody(int64_t length, std::function<void()> onRead) : length_(length), onRead_(std::move(onRead)) {}

  int64_t Length() const override { return length_; }
  int64_t Read(char* buffer, size_t size) override;

  // For the connection. Add, End and Abandon wake up a waiting reader.
  void Add(std::string_view bytes);
  void End();
  // The body will never be complete, unless it already is.
  void Abandon();
  size_t Waiting() const { return bytes_.size() - taken_; }

 private:
  void WakeUpReader();

  const int64_t length_;
  std::function<void()> onRead_;
  std::string bytes_;
  size_t taken_ = 0;  // bytes at the front that have been read
  bool ended_ = false;
  bool failed_ = false;
  bool readerWaits_ = false;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_REQUEST_BODY_H_
