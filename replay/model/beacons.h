// Which requests of a page are beacons: tracking and advertising. The load event may wait for them, but
// people do not. Plain functions; any thread.
//
// A request other than the navigation is a beacon when one of these holds:
// - it is listed: its host name or its path is on the list;
// - it was initiated by a script or a frame that is a beacon;
// - its response has nothing to show: an image of at most 100 bytes, or data with status 204, with a declared
//   length of 0, or, if the request was not a GET, of at most 100 bytes. This does not apply to redirects and
//   errors.
//
// The list is text with one entry per line. # starts a comment, and case is ignored. An entry with a dot is a
// host name and covers its subdomains. An entry that starts with a slash is the beginning of a path. Any
// other entry is a label of a host name or a segment of a path, compared up to the first dot of the segment
// (`pixel` covers /a/pixel.gif).
#ifndef REPLAY_MODEL_BEACONS_H_
#define REPLAY_MODEL_BEACONS_H_

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "replay/model/page_plan.h"
#include "replay/recording/recording.h"

namespace replay {

struct BeaconList {
  std::set<std::string, std::less<>> hosts;
  std::set<std::string, std::less<>> words;
  std::vector<std::string> paths;
};

BeaconList ParseBeaconList(std::string_view text);

// The list of replay/model/beacons.txt.
const BeaconList& DefaultBeaconList();

bool IsListed(const BeaconList& list, const std::string& url);

// The result is indexed like Page::requests. The plan says which request initiated which.
std::vector<bool> FindBeacons(const Page& page, const PagePlan& plan, const BeaconList& list);

}  // namespace replay

#endif  // REPLAY_MODEL_BEACONS_H_
