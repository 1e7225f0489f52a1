// The network of a simulated page load: sockets per group, round trips, server times and the shared access
// link. It answers with what was recorded. One thread; docs/replay-model.md has the rules and their limits.
#ifndef REPLAY_NETWORK_MODEL_H_
#define REPLAY_NETWORK_MODEL_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/settings.h"
#include "host/transport.h"
#include "replay/options.h"
#include "replay/recorded_network.h"
#include "replay/recording.h"
#include "replay/shared_link.h"
#include "replay/virtual_clock.h"

namespace replay {

// When a transfer got how far, in the clock's microseconds; -1 for what has not happened.
struct TransferTimes {
  int64_t startUs = -1;    // asked for
  int64_t connectUs = -1;  // its connection set-up began; equals sentUs when it found one
  int64_t sentUs = -1;
  int64_t firstByteUs = -1;
  int64_t endUs = -1;  // complete, or cancelled
  int64_t bytes = 0;   // of the body, as far as they came over the link
};

class NetworkModel final : public host::Transport {
 public:
  // The server: the recorded request that answers a transfer, or null for one that nobody recorded (it is
  // answered with 404). The record must outlive the model.
  using Server = std::function<const Request*(const host::TransferRequest&)>;

  NetworkModel(VirtualClock& clock, const NetworkProfile& profile, const RecordedNetwork& recorded,
               const host::HostSettings& settings, Server server);

  host::TransferId Start(const host::TransferRequest& request, host::TransferClient& client) override;
  void SetUrgency(host::TransferId id, host::Urgency urgency) override;
  void Cancel(host::TransferId id) override;

  // Opens all connections that the URL's group may have, at once and for nothing.
  void OpenConnections(const std::string& url);

  // Of any transfer since the last Reset.
  const TransferTimes& Times(host::TransferId id) const { return times_.at(id); }

  // Closes every connection and forgets the times. Only while nothing is under way. The bodies of what
  // follows are those of `contentVersion` (see replay/content.h).
  void Reset(uint64_t contentVersion);

 private:
  struct Connection {
    int64_t connectUs;  // its set-up began
    bool fresh = true;  // has carried nothing yet
  };
  struct Group {
    RecordedGroup recorded;
    int64_t rttUs = 0;
    int64_t connectUs = 0;
    size_t connecting = 0;
    size_t busy = 0;  // HTTP/1: connections in use. Otherwise: open streams
    std::vector<Connection>
        idle;  // HTTP/1: connections without work. Otherwise: the one connection, once open
    std::deque<host::TransferId> waiting[2];  // by urgency
    std::vector<host::TransferId> active;
  };
  struct Transfer {
    host::TransferRequest request;
    host::TransferClient* client;
    const Request* recorded;
    Group* group;
    bool active = false;
  };

  Group& GroupOf(const std::string& url);
  bool Multiplexed(const Group& group) const;
  void Dispatch(Group& group);
  void OpenConnection(Group& group);
  void Send(Group& group, host::TransferId id, Connection connection);
  void HurryBlocking(Group& group);
  void Respond(host::TransferId id);
  void Receive(host::TransferId id);
  void Complete(host::TransferId id);
  void Leave(Group& group, host::TransferId id, bool connectionIsGood);

  VirtualClock& clock_;
  const NetworkProfile profile_;
  const RecordedNetwork& recorded_;
  const host::HostSettings settings_;
  const Server server_;
  SharedLink link_;
  std::map<std::string, Group> groups_;
  std::map<host::TransferId, Transfer> transfers_;  // under way
  std::map<host::TransferId, TransferTimes> times_;
  host::TransferId lastId_ = 0;
  uint64_t contentVersion_ = 0;
};

}  // namespace replay

#endif  // REPLAY_NETWORK_MODEL_H_
