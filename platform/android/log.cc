#include "android/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

void WriteToStderr(int /*bufferId*/, int priority, const char* tag, const char* text) {
  if (priority < ANDROID_LOG_WARN) return;
  std::fprintf(stderr, "%s%s%s\n", tag != nullptr ? tag : "", tag != nullptr ? ": " : "", text);
}

std::atomic<android_log::Sink> g_sink = WriteToStderr;

}  // namespace

void android_log::SetSink(Sink sink) {
  g_sink = sink != nullptr ? sink : WriteToStderr;
}

extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...) {
  // The maximum length of a line. Longer lines are cut, as on the device.
  constexpr size_t kMaxLine = 4096;
  char line[kMaxLine];
  va_list args;
  va_start(args, fmt);
  const int length = std::vsnprintf(line, sizeof line, fmt, args);
  va_end(args);
  if (length < 0) return length;
  g_sink.load()(bufID, prio, tag, line);
  return length < static_cast<int>(kMaxLine) ? length : static_cast<int>(kMaxLine) - 1;
}
