#include "replay/model/network_times.h"

#include <algorithm>

namespace replay {
namespace {

int64_t ToUs(double ms) {
  return static_cast<int64_t>(ms * 1000);
}

}  // namespace

bool HasModelledBytes(const NetworkProfile& profile) {
  return profile.rttMs && profile.downMbit;
}

GroupTimes TimesOf(const RecordedGroup& group, const NetworkProfile& profile, const NetworkCosts& costs) {
  const double rttMs = profile.rttMs.value_or(group.rttMs);
  GroupTimes times;
  times.rttUs = ToUs(rttMs);
  times.connectUs = ToUs(profile.rttMs ? rttMs * ConnectRoundTrips(group) : group.connectMs);
  if (costs.nameLookups && profile.rttMs) times.lookUpUs = times.rttUs;
  if (costs.certificates && HasModelledBytes(profile) && group.secure) {
    times.certificateBytes = kCertificateBytes;
  }
  return times;
}

int64_t ServerUs(const Request& recorded, const RecordedGroup& group) {
  return ToUs(std::max(0.0, recorded.waitMs - group.rttMs));
}

int64_t BytesOf(const Request& recorded) {
  return recorded.bodyBytes + static_cast<int64_t>(recorded.responseHeaders.size());
}

double BytesPerUs(const NetworkProfile& profile) {
  return profile.downMbit.value_or(0) / 8;
}

}  // namespace replay
