#include "replay/model/bounds.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <queue>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "host/connection_group.h"
#include "host/order_policy.h"
#include "plugin/properties.h"
#include "replay/model/link_bounds.h"
#include "replay/model/network_times.h"
#include "replay/model/page_events.h"
#include "url/gurl.h"

namespace replay {
namespace {

constexpr double kNever = -std::numeric_limits<double>::infinity();

// What a bound takes for granted.
struct Assumed {
  bool overLink = false;               // what comes early still comes over the link; else it is in memory
  std::set<std::string_view> early;    // URLs that need no request: from the page's request on they come
  std::set<std::string> open;          // groups whose connections are open before that
  std::set<std::string> openedAtOnce;  // groups whose connections are set up from then on
};

Assumed AssumedBy(Way way, const VisitSetup& setup, const host::KnownPage& known) {
  Assumed assumed = {.overLink = way == Way::Reachable};
  const uint64_t sizeLimit = static_cast<uint32_t>(kiv::ReadProperty(kiv::property::kCacheSizeLimit));
  for (const host::KnownResource& resource : known.resources) {
    assumed.open.insert(host::ConnectionGroup(resource.url));
    const bool early =
        assumed.overLink ? host::WhyNotHoldable(resource, sizeLimit) == host::NotServed::None : resource.get;
    if (early) assumed.early.insert(resource.url);
  }
  for (size_t index = 0; index <= setup.page.document; ++index) {
    const std::string group = host::ConnectionGroup(setup.page.requests[index].url);
    if (assumed.overLink) {
      assumed.open.erase(group);
      assumed.openedAtOnce.insert(group);
    } else if (index == 0 || index == setup.page.document) {
      assumed.open.insert(group);
    }
  }
  return assumed;
}

// The load, as if each response had the link for itself; then what the link makes of that.
class EarliestLoad {
 public:
  EarliestLoad(const VisitSetup& setup, const IsFresh& isFresh, Assumed assumed)
      : setup_(setup),
        isFresh_(isFresh),
        assumed_(std::move(assumed)),
        planned_(setup.page.requests.size()),
        rows_(setup.page.requests.size()) {
    FindSharedAnswers();
    for (const std::string& group : assumed_.open) openNames_.insert(GURL(group).host());
    for (const std::string& group : assumed_.openedAtOnce) IsAsked(group, GURL(group).host(), 0);
  }

  WayResult Run() {
    for (size_t index = 0; index < planned_.size(); ++index) {
      const PlannedRequest& plan = setup_.plan.requests[index];
      rows_[index].request = index;
      rows_[index].blocksLoad = plan.blocksLoad;
      if (plan.parent == kPageStart) {
        asked_.emplace(plan.thinkUs, index);
      } else {
        planned_[plan.parent].children.push_back(index);
      }
    }
    while (!asked_.empty()) {
      const auto [askedUs, index] = asked_.top();
      asked_.pop();
      order_.push_back(index);
      Answer(index, askedUs);
      for (const size_t child : planned_[index].children) {
        const PlannedRequest& plan = setup_.plan.requests[child];
        const RequestRow& row = rows_[index];
        asked_.emplace((plan.fromFirstByte ? row.firstByteUs : row.endUs) + plan.thinkUs, child);
      }
    }
    WayResult result;
    result.requests = rows_;
    TimeEvents(setup_.plan, result);
    ShareLink(result.times);
    std::stable_sort(result.requests.begin(), result.requests.end(),
                     [](const RequestRow& a, const RequestRow& b) { return a.wantedUs < b.wantedUs; });
    return result;
  }

 private:
  // The parts of an answer that take time, in microseconds.
  struct Answers {
    int64_t serverUs = 0;
    double linkUs = 0;
    bool shared = false;  // one answer may do for all requests of the URL
    int64_t endUs = -1;   // of the first of these
  };
  struct Planned {
    std::vector<size_t> children;
    bool comesOverLink = false;
    double fromUs = 0;         // when its bytes can begin to come
    double linkUs = 0;         // how long they take
    int64_t untilFirstUs = 0;  // from the request to its first byte; 0 when it may be there already
    bool inMemory = false;     // may be there when it is asked for
  };

  double LinkUs(const Request& request) const {
    if (!setup_.options.profile.downMbit) return std::floor(request.receiveMs * 1000);
    return static_cast<double>(BytesOf(request)) / BytesPerUs(setup_.options.profile);
  }

  GroupTimes TimesOfGroup(const std::string& group) const {
    return TimesOf(Recorded(group), setup_.options.profile, setup_.options.costs);
  }
  RecordedGroup Recorded(const std::string& group) const {
    const auto known = setup_.recordedNetwork.find(group);
    return known != setup_.recordedNetwork.end() ? known->second : RecordedGroup{};
  }

  // A URL that comes early, or that the browser's cache may keep, is answered once for all of its requests,
  // by whichever of their responses comes first.
  void FindSharedAnswers() {
    std::map<std::string_view, Answers> all;
    for (const Request& request : setup_.page.requests) {
      if (request.method != "GET") continue;
      const int64_t serverUs = ServerUs(request, Recorded(host::ConnectionGroup(request.url)));
      const auto [place, isNew] = all.try_emplace(request.url, Answers{serverUs, LinkUs(request)});
      Answers& answers = place->second;
      answers.serverUs = std::min(answers.serverUs, serverUs);
      answers.linkUs = std::min(answers.linkUs, LinkUs(request));
      if (request.freshForMs || assumed_.early.contains(request.url)) answers.shared = true;
    }
    for (const auto& [url, answers] : all) {
      if (answers.shared) shared_.emplace(url, answers);
    }
  }

  void IsAsked(const std::string& group, const std::string& name, int64_t atUs) {
    groupAskedUs_.try_emplace(group, atUs);
    nameAskedUs_.try_emplace(name, atUs);
  }

  // When a request that is made at `askedUs` can have a connection.
  double ConnectedUs(const std::string& url, int64_t askedUs) {
    const std::string group = host::ConnectionGroup(url);
    if (assumed_.open.contains(group)) return static_cast<double>(askedUs);
    const std::string name = GURL(url).host();
    IsAsked(group, name, askedUs);
    const GroupTimes times = TimesOfGroup(group);
    int64_t openUs = groupAskedUs_.at(group);
    const bool isOwn = assumed_.openedAtOnce.contains(group);
    if (isOwn || !openNames_.contains(name))
      openUs = std::max(openUs, nameAskedUs_.at(name) + times.lookUpUs);
    double connectedUs = static_cast<double>(openUs + times.connectUs);
    if (times.certificateBytes > 0) {
      connectedUs += static_cast<double>(times.certificateBytes) / BytesPerUs(setup_.options.profile);
    }
    openedUs_.try_emplace(group, connectedUs);
    return std::max(connectedUs, static_cast<double>(askedUs));
  }

  // When a response with the link for itself is complete.
  double EndUs(const std::string& group, double sentUs, const Planned& planned) const {
    const NetworkProfile& profile = setup_.options.profile;
    const auto rttUs = static_cast<double>(TimesOfGroup(group).rttUs);
    const bool windows = setup_.options.costs.slowStart && HasModelledBytes(profile) && rttUs > 0;
    if (!windows) return planned.fromUs + planned.linkUs;
    const auto opened = openedUs_.find(group);
    const double firstUs = (opened != openedUs_.end() ? opened->second : 0) + rttUs;
    const Window window = {static_cast<double>(kInitialWindow) / BytesPerUs(profile), rttUs, firstUs};
    const double endUs = EndOnBusyConnection(window, planned.fromUs, planned.linkUs);
    if (Recorded(group).protocol != Protocol::Http1) return endUs;
    return std::max(endUs, EndOnHttp1(window, sentUs, planned.fromUs, planned.linkUs));
  }

  void Answer(size_t index, int64_t askedUs) {
    const Request& request = setup_.page.requests[index];
    Planned& planned = planned_[index];
    RequestRow& row = rows_[index];
    row.wantedUs = row.connectUs = row.sentUs = row.firstByteUs = row.endUs = askedUs;
    const bool get = request.method == "GET";
    if (get && isFresh_(request.url, askedUs)) {
      row.source = Source::DiskCache;
      planned.inMemory = true;
      return;
    }
    const auto found = get ? shared_.find(request.url) : shared_.end();
    Answers* const shared = found != shared_.end() ? &found->second : nullptr;
    const bool early =
        shared != nullptr && index > setup_.page.document && assumed_.early.contains(request.url);
    if (early && !assumed_.overLink) {
      row.source = Source::Memory;
      planned.inMemory = true;
      return;
    }
    const std::string group = host::ConnectionGroup(request.url);
    const double connectedUs = ConnectedUs(request.url, askedUs);
    planned.untilFirstUs = TimesOfGroup(group).rttUs +
                           (shared != nullptr ? shared->serverUs : ServerUs(request, Recorded(group)));
    planned.linkUs = shared != nullptr ? shared->linkUs : LinkUs(request);
    planned.fromUs = connectedUs + static_cast<double>(planned.untilFirstUs);
    planned.comesOverLink = shared == nullptr || shared->endUs < 0;
    row.source = Source::Network;
    row.sentUs = static_cast<int64_t>(connectedUs);
    row.firstByteUs = static_cast<int64_t>(planned.fromUs);
    row.endUs = static_cast<int64_t>(EndUs(group, connectedUs, planned));
    if (early) planned.fromUs = ConnectedUs(request.url, 0) + static_cast<double>(shared->serverUs);
    if (shared == nullptr) return;
    if (early) shared->endUs = static_cast<int64_t>(planned.fromUs + planned.linkUs);
    if (shared->endUs < 0) shared->endUs = row.endUs;
    planned.inMemory = early || !planned.comesOverLink;
    if (!planned.inMemory || shared->endUs >= row.endUs) return;
    row.endUs = std::max(askedUs, shared->endUs);
    row.source = row.endUs == askedUs ? Source::Memory : Source::Joined;
    row.sentUs = askedUs;
    const int64_t firstUs = early ? std::max(askedUs, static_cast<int64_t>(planned.fromUs)) : row.endUs;
    row.firstByteUs = std::min(row.firstByteUs, firstUs);
  }

  // The least time from the end of each response to the event; kNever for those that it does not wait for.
  std::vector<double> TailsTo(const AwaitedEvent& event) const {
    std::vector<double> afterEnd(planned_.size(), kNever), afterFirst(planned_.size(), kNever);
    const auto restUs = static_cast<double>(event.restUs);
    afterFirst[setup_.plan.document] = restUs;
    for (const size_t index : event.requests) afterEnd[index] = restUs;
    for (auto place = order_.rbegin(); place != order_.rend(); ++place) {  // children before parents
      const size_t index = *place;
      const PlannedRequest& plan = setup_.plan.requests[index];
      if (plan.parent == kPageStart) continue;
      const Planned& planned = planned_[index];
      double tailUs = std::max(afterFirst[index], afterEnd[index]);
      if (!planned.inMemory) {
        tailUs = static_cast<double>(planned.untilFirstUs) +
                 std::max(afterFirst[index], afterEnd[index] + planned.linkUs);
      }
      double& parent = (plan.fromFirstByte ? afterFirst : afterEnd)[plan.parent];
      parent = std::max(parent, tailUs + static_cast<double>(plan.thinkUs));
    }
    return afterEnd;
  }

  // Makes the times later where the link cannot carry in time what they wait for.
  void ShareLink(LoadTimes& times) const {
    if (!setup_.options.profile.downMbit) return;
    const auto byLink = [this](const AwaitedEvent& event) {
      const std::vector<double> tails = TailsTo(event);
      std::vector<LinkTransfer> transfers;
      for (size_t index = 0; index < planned_.size(); ++index) {
        const Planned& planned = planned_[index];
        if (!planned.comesOverLink || tails[index] == kNever) continue;
        transfers.push_back({planned.fromUs, planned.linkUs, tails[index]});
      }
      return static_cast<int64_t>(LastTailUs(transfers));
    };
    const PageEvents& events = setup_.plan.events;
    const int64_t contentLoadedUs = byLink(events.contentLoaded);
    times.firstPaintUs = std::max(times.firstPaintUs, byLink(events.firstPaint));
    times.contentLoadedUs = std::max(times.contentLoadedUs, contentLoadedUs);
    times.pageLoadUs = std::max({times.pageLoadUs, byLink(events.load), contentLoadedUs});
    times.loadWithoutBeaconsUs =
        std::max({times.loadWithoutBeaconsUs, byLink(events.loadWithoutBeacons), contentLoadedUs});

    // What comes early is either waited for by the page, or by the link.
    times.objectIndexUs = std::max({times.objectIndexUs, ObjectIndexByLink(false), ObjectIndexByLink(true)});
  }

  int64_t ObjectIndexByLink(bool withEarly) const {
    double sumUs = 0, count = 0;
    std::vector<LinkTransfer> transfers;
    for (size_t index = setup_.plan.document + 1; index < planned_.size(); ++index) {
      if (!rows_[index].blocksLoad || setup_.plan.events.beacons[index]) continue;
      ++count;
      const Planned& planned = planned_[index];
      if (planned.comesOverLink && (withEarly || !planned.inMemory)) {
        transfers.push_back({planned.fromUs, planned.linkUs, 0});
      } else {
        sumUs += static_cast<double>(rows_[index].endUs);
      }
    }
    return count > 0 ? static_cast<int64_t>((sumUs + SumOfEndsUs(transfers)) / count) : 0;
  }

  const VisitSetup& setup_;
  const IsFresh& isFresh_;
  const Assumed assumed_;
  std::set<std::string> openNames_;
  std::map<std::string, int64_t> groupAskedUs_, nameAskedUs_;  // for the first time
  std::map<std::string, double> openedUs_;                     // of groups that were not open before
  std::map<std::string_view, Answers> shared_;

  using Asked = std::pair<int64_t, size_t>;
  std::priority_queue<Asked, std::vector<Asked>, std::greater<>> asked_;
  std::vector<size_t> order_;  // in which they were asked for
  std::vector<Planned> planned_;
  std::vector<RequestRow> rows_;
};

}  // namespace

WayResult ComputeBound(Way way, const VisitSetup& setup, const host::KnownPage& known,
                       const IsFresh& isFresh) {
  return EarliestLoad(setup, isFresh, AssumedBy(way, setup, known)).Run();
}

}  // namespace replay
