// Which connections to open ahead of a page's own requests: a pure function of what is known when the page is
// requested. Any thread.
#ifndef HOST_PRECONNECT_POLICY_H_
#define HOST_PRECONNECT_POLICY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/page_database.h"
#include "host/settings.h"

namespace host {

struct ConnectionNeed {
  int64_t atUs = 0;  // when to open them, after the page's request
  std::string url;   // of a resource of the group that they lead to
  size_t count = 0;  // as for Transport::Preconnect
};

// What the page will need connections for, earliest first. `covered`, by index of KnownPage::resources, says
// which resources need none: they are preloaded, or fresh in the browser's cache.
std::vector<ConnectionNeed> DecidePreconnects(const KnownPage& page, const std::vector<bool>& covered,
                                              const HostSettings& settings);

}  // namespace host

#endif  // HOST_PRECONNECT_POLICY_H_
