// How the plugin writes log lines, and at which verbosity. Any thread. The verbosity is queried for each
// line, and the arguments are evaluated only if the line is written.
#ifndef PLUGIN_LOG_H_
#define PLUGIN_LOG_H_

#include "android/log.h"
#include "plugin/corvane.h"

// The format must be a literal, so that the compiler can check the arguments.
#define KIV_WRITE(priority, format, ...)                      \
  __android_log_buf_print(LOG_ID_SYSTEM, (priority), nullptr, \
                          "netstack: KIV_PROC - " format __VA_OPT__(, ) __VA_ARGS__)

#define KIV_WRITE_IF(gate, priority, ...)       \
  do {                                          \
    if (gate) KIV_WRITE(priority, __VA_ARGS__); \
  } while (false)

#define KIV_DEBUG(...) KIV_WRITE_IF(CorvaneGetVerboseLevel() > 3, ANDROID_LOG_DEBUG, __VA_ARGS__)
#define KIV_INFO(...) KIV_WRITE_IF(CorvaneGetVerboseLevel() > 2, ANDROID_LOG_INFO, __VA_ARGS__)
#define KIV_WARNING(...) KIV_WRITE(ANDROID_LOG_WARN, __VA_ARGS__)
#define KIV_ERROR(...) KIV_WRITE(ANDROID_LOG_ERROR, __VA_ARGS__)

#endif  // PLUGIN_LOG_H_
