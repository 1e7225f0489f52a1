// Runs kiv_proxy: puts all parts of the live side together.
#ifndef LIVE_PROGRAM_RUN_PROXY_H_
#define LIVE_PROGRAM_RUN_PROXY_H_

#include "live/program/options.h"

namespace live {

// Prints the address on standard output, then a line for each page load, and messages on standard error.
// Returns after SIGINT or SIGTERM, after it has stored what open pages have taught. Throws std::runtime_error
// with one line if it cannot start. Call it at most once per process.
void RunProxy(const ProxyOptions& options);

}  // namespace live

#endif  // LIVE_PROGRAM_RUN_PROXY_H_
