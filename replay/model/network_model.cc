#include "replay/model/network_model.h"

#include <algorithm>
#include <utility>

#include "host/connection_group.h"
#include "host/link_policy.h"
#include "replay/model/content.h"
#include "url/gurl.h"

namespace replay {
namespace {

constexpr size_t kMaxStreams = 100;
constexpr int64_t kSegment = 1460;

size_t Index(host::Urgency urgency) {
  return static_cast<size_t>(urgency);
}

// The server's answer for a URL that was not recorded.
const std::string& NotFoundBlock() {
  static const std::string block("HTTP/1.1 404 Not Found\0Content-Length: 0\0\0", 42);
  return block;
}

// The following functions accept null for a response that was not recorded.
int64_t BytesToCome(const Request* recorded) {
  return recorded != nullptr ? BytesOf(*recorded) : static_cast<int64_t>(NotFoundBlock().size());
}

int64_t RecordedReceiveUs(const Request* recorded) {
  return recorded != nullptr ? static_cast<int64_t>(recorded->receiveMs * 1000) : 0;
}

}  // namespace

NetworkModel::NetworkModel(host::VirtualClock& clock, const NetworkProfile& profile,
                           const NetworkCosts& costs, const RecordedNetwork& recorded,
                           const host::HostSettings& settings, Server server)
    : clock_(clock),
      profile_(profile),
      costs_(costs),
      recorded_(recorded),
      settings_(settings),
      server_(std::move(server)),
      link_(clock, BytesPerUs(profile), settings),
      tasks_(clock) {}

NetworkModel::Group& NetworkModel::GroupOf(const std::string& url) {
  const std::string key = host::ConnectionGroup(url);
  const auto [place, isNew] = groups_.try_emplace(key);
  Group& group = place->second;
  if (!isNew) return group;
  if (const auto known = recorded_.find(key); known != recorded_.end()) group.recorded = known->second;
  group.host = GURL(url).host();
  group.times = TimesOf(group.recorded, profile_, costs_);
  return group;
}

bool NetworkModel::Multiplexed(const Group& group) const {
  return group.recorded.protocol != Protocol::Http1;
}

host::TransferId NetworkModel::Start(const host::TransferRequest& request, host::TransferClient& client) {
  const host::TransferId id = ++lastId_;
  Group& group = GroupOf(request.url);
  Transfer& transfer = transfers_[id];
  transfer = {request, &client, server_(request), &group};
  transfer.report.started = clock_.Now();
  group.waiting[Index(request.urgency)].push_back(id);
  // This is a task of its own, because Start must not call the client.
  tasks_.Post([this, &group] {
    Dispatch(group);
    OpenPlanned();  // a connection that was opened ahead may now have a transfer that waits for it
  });
  return id;
}

void NetworkModel::SetUrgency(host::TransferId id, host::Urgency urgency) {
  const auto found = transfers_.find(id);
  if (found == transfers_.end() || found->second.request.urgency == urgency) return;
  Transfer& transfer = found->second;
  if (!transfer.active) {
    std::erase(transfer.group->waiting[Index(transfer.request.urgency)], id);
    transfer.group->waiting[Index(urgency)].push_back(id);
    tasks_.Post([this, &group = *transfer.group] { Dispatch(group); });
  }
  BecomeUrgent(transfer, id, urgency);
}

size_t& NetworkModel::ReceivingLike(const Transfer& transfer) {
  return transfer.flow->receiving[Index(transfer.request.urgency)];
}

void NetworkModel::BecomeUrgent(Transfer& transfer, host::TransferId id, host::Urgency urgency) {
  if (transfer.receiving) --ReceivingLike(transfer);
  transfer.request.urgency = urgency;
  if (transfer.receiving) ++ReceivingLike(transfer);
  link_.SetUrgency(id, urgency);
}

void NetworkModel::SetReading(host::TransferId id, bool reading) {
  const auto found = transfers_.find(id);
  if (found == transfers_.end() || std::exchange(found->second.reading, reading) == reading) return;
  if (reading && found->second.received) tasks_.Post([this, id] { Complete(id); });
}

host::TransferReport NetworkModel::Cancel(host::TransferId id) {
  const auto found = transfers_.find(id);
  if (found == transfers_.end()) return {};
  Transfer& transfer = found->second;
  Group& group = *transfer.group;
  host::TransferReport report = transfer.report;
  report.ended = clock_.Now();
  const int64_t came = transfer.receivedBytes + link_.Remove(id);
  if (transfer.receiving) --ReceivingLike(transfer);
  if (transfer.received) {
    report.bodyBytes = transfer.recorded != nullptr ? transfer.recorded->bodyBytes : 0;
  } else if (transfer.recorded != nullptr) {
    report.bodyBytes =
        std::max<int64_t>(came - static_cast<int64_t>(transfer.recorded->responseHeaders.size()), 0);
  }
  if (transfer.active) {
    // An HTTP/1 connection with an incomplete response cannot be used again.
    Leave(group, id, false);
  } else {
    std::erase(group.waiting[Index(transfer.request.urgency)], id);
  }
  transfers_.erase(found);
  return report;
}

void NetworkModel::Preconnect(const std::string& url, size_t count, net::URLRequestContext* /*context*/) {
  planned_.push_back({&GroupOf(url), count});
  OpenPlanned();
}

// Opens planned connections, up to the limit on connections that nobody waits for.
void NetworkModel::OpenPlanned() {
  while (!planned_.empty()) {
    Group& group = *planned_.front().group;
    const size_t most = Multiplexed(group) ? 1 : static_cast<size_t>(settings_.socketsPerGroup);
    const size_t busy = Multiplexed(group) ? 0 : group.busy;
    const size_t open = group.idle.size() + group.connecting;
    // Connections for which transfers wait count as used.
    const size_t taken = Multiplexed(group) ? 0 : group.waiting[0].size() + group.waiting[1].size();
    if (open >= planned_.front().count + taken || open + busy >= most) {
      planned_.pop_front();
      continue;
    }
    size_t forNobody = 0;
    for (const auto& [key, other] : groups_) {
      const size_t waiting = other.waiting[0].size() + other.waiting[1].size();
      forNobody += other.connecting - std::min(other.connecting, waiting);
    }
    if (forNobody >= settings_.maxPreconnects) return;
    OpenConnection(group);
  }
}

size_t NetworkModel::UnusedConnections() const {
  size_t unused = 0;
  for (const auto& [key, group] : groups_) {
    unused += group.connecting;
    for (const Connection& connection : group.idle) unused += connection.fresh ? 1 : 0;
  }
  return unused;
}

void NetworkModel::Reset(uint64_t contentVersion) {
  contentVersion_ = contentVersion;
  planned_.clear();
  knownNames_.clear();
  groups_.clear();
  transfers_.clear();
  connections_ = 0;
}

// How many connections or streams of a group may be in use once a preload has got one.
size_t NetworkModel::MostBesidePreloads(const Group& group) const {
  if (Multiplexed(group)) return kMaxStreams;
  return static_cast<size_t>(std::max(settings_.socketsPerGroup - settings_.reservedSockets, 1));
}

// Gives free connections to waiting transfers, those of the browser first, and opens as many as permitted.
void NetworkModel::Dispatch(Group& group) {
  auto& browser = group.waiting[Index(host::Urgency::Browser)];
  auto& preloads = group.waiting[Index(host::Urgency::Preload)];
  while (!browser.empty() || !preloads.empty()) {
    const bool free =
        Multiplexed(group) ? !group.idle.empty() && group.busy < kMaxStreams : !group.idle.empty();
    if (!free) break;
    if (browser.empty() && group.busy >= MostBesidePreloads(group)) break;
    auto& queue = browser.empty() ? preloads : browser;
    const host::TransferId id = queue.front();
    queue.pop_front();
    const Connection connection = group.idle.back();
    if (Multiplexed(group)) {
      group.idle.back().fresh = false;
    } else {
      group.idle.pop_back();
    }
    Send(group, id, connection);
  }
  HurrySetUps(group);
  const size_t waiting = browser.size() + preloads.size();
  if (Multiplexed(group)) {
    if (waiting > 0 && group.idle.empty() && group.connecting == 0) OpenConnection(group);
    return;
  }
  const auto limit = static_cast<size_t>(settings_.socketsPerGroup);
  const size_t most = MostBesidePreloads(group), taken = std::min(most, group.busy + browser.size());
  const size_t wanted = browser.size() + std::min(preloads.size(), most - taken);
  while (group.connecting < wanted && group.connecting + group.busy + group.idle.size() < limit) {
    OpenConnection(group);
  }
  if (!browser.empty()) HurryBlocking(group);
}

NetworkModel::Connection NetworkModel::NewConnection(int64_t connectUs, bool fresh) {
  return {.connectUs = connectUs, .fresh = fresh, .flow = std::make_shared<Flow>()};
}

// How long a set-up waits for the address.
int64_t NetworkModel::LookUp(Group& group) {
  const auto [name, isNew] = knownNames_.try_emplace(group.host, clock_.NowUs() + group.times.lookUpUs);
  return std::max<int64_t>(name->second - clock_.NowUs(), 0);
}

void NetworkModel::OpenConnection(Group& group) {
  ++group.connecting;
  ++connections_;
  tasks_.Post([this, &group, connectUs = clock_.NowUs()] { ReceiveCertificates(group, connectUs); },
              LookUp(group) + group.times.connectUs);
}

void NetworkModel::ReceiveCertificates(Group& group, int64_t connectUs) {
  if (group.times.certificateBytes == 0) return Opened(group, connectUs);
  const uint64_t id = ++lastId_;
  group.settingUp.push_back(id);
  const int64_t bytes = group.hasSession ? kResumedBytes : group.times.certificateBytes;
  link_.Add(id, bytes, host::Urgency::Preload, [this, &group, connectUs, id] {
    std::erase(group.settingUp, id);
    group.hasSession = true;
    Opened(group, connectUs);
  });
  HurrySetUps(group);
}

// A set-up for which no request of the page waits yields like a preload.
void NetworkModel::HurrySetUps(Group& group) {
  const size_t wanted = group.waiting[Index(host::Urgency::Browser)].size();
  for (size_t index = 0; index < std::min(wanted, group.settingUp.size()); ++index) {
    link_.SetUrgency(group.settingUp[index], host::Urgency::Browser);
  }
}

// The first transfer that waits when the connection is open gets it, not necessarily the one that opened it.
void NetworkModel::Opened(Group& group, int64_t connectUs) {
  --group.connecting;
  group.idle.push_back(NewConnection(connectUs, true));
  Dispatch(group);
  OpenPlanned();
}

void NetworkModel::Send(Group& group, host::TransferId id, const Connection& connection) {
  Transfer& transfer = transfers_.at(id);
  host::TransferReport& report = transfer.report;
  report.sent = clock_.Now();
  report.connect = report.sent;
  transfer.flow = connection.flow;
  if (connection.fresh) {
    report.connect = std::max(base::Time::FromInternalValue(connection.connectUs), report.started);
  }
  transfer.active = true;
  ++group.busy;
  group.active.push_back(id);
  const int64_t serverUs = transfer.recorded != nullptr ? ServerUs(*transfer.recorded, group.recorded) : 0;
  tasks_.Post([this, id] { Respond(id); }, group.times.rttUs + serverUs);
}

void NetworkModel::HurryBlocking(Group& group) {
  std::vector<host::Urgency> running;
  for (const host::TransferId id : group.active) running.push_back(transfers_.at(id).request.urgency);
  const size_t waiting = group.waiting[Index(host::Urgency::Browser)].size();
  for (const size_t index : host::PreloadsToHurry(settings_, waiting, group.connecting, running)) {
    const host::TransferId id = group.active[index];
    BecomeUrgent(transfers_.at(id), id, host::Urgency::Browser);
  }
}

void NetworkModel::Respond(host::TransferId id) {
  const auto found = transfers_.find(id);
  if (found == transfers_.end()) return;  // cancelled
  const Request* const recorded = found->second.recorded;
  found->second.report.firstByte = clock_.Now();
  const std::string& block = recorded != nullptr ? recorded->responseHeaders : NotFoundBlock();
  found->second.client->OnResponse(net::HttpResponseHeaders(block));
  if (transfers_.contains(id)) Receive(id);
}

void NetworkModel::Receive(host::TransferId id) {
  Transfer& transfer = transfers_.at(id);
  if (!profile_.downMbit) {
    tasks_.Post([this, id] { Complete(id); }, RecordedReceiveUs(transfer.recorded));
    return;
  }
  transfer.receiving = true;
  ++ReceivingLike(transfer);
  tasks_.Post([this, id] { ReceiveWindow(id); });  // after those that begin now are counted
}

// Receives as much as the window of the connection permits in one round trip. The window grows by what has
// been acknowledged, and the streams of a connection share it.
void NetworkModel::ReceiveWindow(host::TransferId id) {
  const auto found = transfers_.find(id);
  if (found == transfers_.end()) return;  // cancelled
  Transfer& transfer = found->second;
  int64_t bytes = BytesToCome(transfer.recorded) - transfer.receivedBytes;
  if (costs_.slowStart && HasModelledBytes(profile_)) {
    const int64_t window = kInitialWindow + transfer.flow->delivered;
    const auto linkHolds =
        static_cast<int64_t>(*profile_.downMbit / 8 * static_cast<double>(transfer.group->times.rttUs));
    // A preload yields here as well: the server sends what is more urgent first.
    size_t streams = transfer.flow->receiving[Index(host::Urgency::Browser)];
    if (transfer.request.urgency == host::Urgency::Preload) streams += ReceivingLike(transfer);
    if (window < linkHolds)
      bytes = std::min(bytes, std::max(window / static_cast<int64_t>(streams), kSegment));
  }
  link_.Add(id, bytes, transfer.request.urgency, [this, id, bytes, begunUs = clock_.NowUs()] {
    const auto place = transfers_.find(id);
    if (place == transfers_.end()) return;  // cancelled by a client whose bytes arrived at the same time
    Transfer& came = place->second;
    came.receivedBytes += bytes;
    came.flow->delivered += bytes;
    if (came.receivedBytes == BytesToCome(came.recorded)) {
      came.receiving = false;
      --ReceivingLike(came);
      return Complete(id);
    }
    tasks_.Post([this, id] { ReceiveWindow(id); },
                std::max<int64_t>(begunUs + came.group->times.rttUs - clock_.NowUs(), 0));
  });
}

void NetworkModel::Complete(host::TransferId id) {
  const auto found = transfers_.find(id);
  if (found == transfers_.end()) return;  // cancelled
  Transfer& transfer = found->second;
  transfer.received = true;
  if (!transfer.reading) return;  // is called again when the client reads
  transfer.report.ended = clock_.Now();
  host::TransferClient& client = *transfer.client;
  if (const Request* const recorded = transfer.recorded; recorded != nullptr) {
    transfer.report.bodyBytes = recorded->bodyBytes;
    const uint64_t seed = ContentSeed(recorded->url, contentVersion_);
    int64_t at = 0;
    GenerateContent(seed, recorded->bodyBytes, [&](std::string_view piece) {
      at += static_cast<int64_t>(piece.size());
      if (at <= transfer.deliveredBytes) return true;
      transfer.deliveredBytes = at;
      client.OnBody(piece.data(), static_cast<int32_t>(piece.size()));
      return transfers_.contains(id) && transfer.reading;  // unless that cancelled or paused it
    });
    if (!transfers_.contains(id) || transfer.deliveredBytes < recorded->bodyBytes) return;
  }
  const host::TransferReport report = transfer.report;
  Leave(*transfer.group, id, true);
  transfers_.erase(id);
  client.OnDone(host::kOk, report);
}

void NetworkModel::Leave(Group& group, host::TransferId id, bool connectionIsGood) {
  const std::shared_ptr<Flow> flow = transfers_.at(id).flow;
  --group.busy;
  std::erase(group.active, id);
  if (!Multiplexed(group) && connectionIsGood) {
    group.idle.push_back({.connectUs = clock_.NowUs(), .fresh = false, .flow = flow});
  }
  tasks_.Post([this, &group] { Dispatch(group); });
}

}  // namespace replay
