// How preloads share connections and the link with the browser's own transfers. The transport carries out
// what is decided here. Pure functions; any thread.
#ifndef HOST_LINK_POLICY_H_
#define HOST_LINK_POLICY_H_

#include <cstddef>
#include <vector>

#include "host/settings.h"
#include "host/transport.h"

namespace host {

// The share of the link, 0 to 1, of all running preloads together beside `browserTransfers` of the browser
// that are being received. The rest is the browser's.
double PreloadsShareOfLink(const HostSettings& settings, size_t browserTransfers);

// Which of a group's running transfers to make as urgent as the browser's: indices into `running`, which is
// ordered from the longest running one to the latest. `waiting` transfers of the browser have no connection,
// and `connecting` connections are on their way to the group.
std::vector<size_t> PreloadsToHurry(const HostSettings& settings, size_t waiting, size_t connecting,
                                    const std::vector<Urgency>& running);

}  // namespace host

#endif  // HOST_LINK_POLICY_H_
