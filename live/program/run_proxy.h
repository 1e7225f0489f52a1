// kiv_proxy at work: everything of the live side put together, from the first request to the last page.
#ifndef LIVE_PROGRAM_RUN_PROXY_H_
#define LIVE_PROGRAM_RUN_PROXY_H_

#include "live/program/options.h"

namespace live {

// Prints the address on standard output, then a line for each page load, and messages on standard error.
// Returns after SIGINT or SIGTERM, when what open pages have taught is stored. Throws std::runtime_error with
// one line when it cannot begin. Once per process.
void RunProxy(const ProxyOptions& options);

}  // namespace live

#endif  // LIVE_PROGRAM_RUN_PROXY_H_
