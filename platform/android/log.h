// Android's log: printf-style lines, passed to a sink that the host may replace. Any thread.
#ifndef ANDROID_LOG_H_
#define ANDROID_LOG_H_

enum android_LogPriority {
  ANDROID_LOG_UNKNOWN = 0,
  ANDROID_LOG_DEFAULT = 1,
  ANDROID_LOG_VERBOSE = 2,
  ANDROID_LOG_DEBUG = 3,
  ANDROID_LOG_INFO = 4,
  ANDROID_LOG_WARN = 5,
  ANDROID_LOG_ERROR = 6,
};

// The buffers that a line can go to.
enum log_id {
  LOG_ID_MAIN = 0,
  LOG_ID_RADIO = 1,
  LOG_ID_EVENTS = 2,
  LOG_ID_SYSTEM = 3,
};

extern "C" {

// Writes one line to a buffer; `tag` may be null. Returns the number of bytes written, or a negative number.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is Android's
int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));
}

// Not in the real header: the destination of this stub's lines.
namespace android_log {

// Called on the thread that logs, and by several threads at once if several log. `tag` may be null. `text` is
// valid during the call.
using Sink = void (*)(int bufferId, int priority, const char* tag, const char* text);

// Replaces the sink. Null restores the default, which writes lines of priority 5 and 6 to standard error.
void SetSink(Sink sink);

}  // namespace android_log

#endif  // ANDROID_LOG_H_
