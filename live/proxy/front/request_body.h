// The body of a request on its way from the browser's socket to whoever sends it on. Loop's thread.
#ifndef LIVE_PROXY_FRONT_REQUEST_BODY_H_
#define LIVE_PROXY_FRONT_REQUEST_BODY_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "host/transport.h"

namespace live {

// May outlive the connection, which gives it up by Abandon.
class RequestBody final : public host::UploadBody {
 public:
  // `onRead` is called after each Read from inside, so it must not call the handler.
  RequestBody(int64_t length, std::function<void()> onRead) : length_(length), onRead_(std::move(onRead)) {}

  int64_t Length() const override { return length_; }
  int64_t Read(char* buffer, size_t size) override;

  // The connection's side. Add, End and Abandon wake up the reader when it waits.
  void Add(std::string_view bytes);
  void End();
  // It will never be complete, unless it is already.
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
