// Redirects among recorded requests. Any thread.
#ifndef REPLAY_RECORDING_REDIRECTS_H_
#define REPLAY_RECORDING_REDIRECTS_H_

#include <string>

#include "replay/recording/recording.h"

namespace replay {

bool IsRedirect(const Request& request);

// The URL that a redirect leads to; empty if it has none.
std::string RedirectTarget(const Request& request);

}  // namespace replay

#endif  // REPLAY_RECORDING_REDIRECTS_H_
