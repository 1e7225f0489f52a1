// Which requests of a page are beacons: tracking and advertising, which a load event may wait for and a
// person does not. Plain functions; any thread.
//
// A request other than the navigation is a beacon when one of these holds:
// - it is listed: its host or its path is on the list;
// - it was initiated by a script or a frame that is a beacon;
// - it brought nothing to show: an image of at most 100 bytes, or data with status 204, a declared length of
//   0, or, when it was no GET, at most 100 bytes. Redirects and errors are not judged by this.
//
// The list is text, one entry per line, # begins a comment, case does not count. An entry with a dot is a
// host name and covers its subdomains; one with a slash at its start is the beginning of a path; any other
// word is a label of a host name or a segment of a path, there up to its first dot (`pixel` covers
// /a/pixel.gif).
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

// By index of Page::requests. The plan tells who initiated whom.
std::vector<bool> FindBeacons(const Page& page, const PagePlan& plan, const BeaconList& list);

}  // namespace replay

#endif  // REPLAY_MODEL_BEACONS_H_
