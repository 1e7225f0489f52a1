// The network of a simulated page load: sockets per group, round trips, server times and the shared access
// link. It answers with what was recorded. One thread; docs/replay-model.md has the rules and their limits.
#ifndef REPLAY_MODEL_NETWORK_MODEL_H_
#define REPLAY_MODEL_NETWORK_MODEL_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/settings.h"
#include "host/transport.h"
#include "host/virtual_clock.h"
#include "replay/model/recorded_network.h"
#include "replay/model/replay_options.h"
#include "replay/model/shared_link.h"
#include "replay/recording/recording.h"

namespace replay {

class NetworkModel final : public host::Transport {
 public:
  // The server: the recorded request that answers a transfer, or null for one that nobody recorded (it is
  // answered with 404). The record must outlive the model.
  using Server = std::function<const Request*(const host::TransferRequest&)>;

  NetworkModel(host::VirtualClock& clock, const NetworkProfile& profile, const RecordedNetwork& recorded,
               const host::HostSettings& settings, Server server);

  host::TransferId Start(const host::TransferRequest& request, host::TransferClient& client) override;
  void SetUrgency(host::TransferId id, host::Urgency urgency) override;
  void SetReading(host::TransferId id, bool reading) override;
  host::TransferReport Cancel(host::TransferId id) override;
  void Preconnect(const std::string& url, size_t count) override;

  // Opens all connections that the URL's group may have, at once and for nothing.
  void OpenConnections(const std::string& url);

  // Transfers a response over the link, and nothing else: without connection, round trip and server. `done`
  // is called in a task of its own; the id is for SetReceivingUrgency, which ignores one that is done.
  uint64_t ReceiveAlone(const Request& recorded, host::Urgency urgency, std::function<void()> done);
  void SetReceivingUrgency(uint64_t id, host::Urgency urgency) { link_.SetUrgency(id, urgency); }

  // Connections whose set-up began since the last Reset, and those of them that have carried no request.
  size_t Connections() const { return connections_; }
  size_t UnusedConnections() const;

  // Closes every connection. Only while nothing is under way. The bodies of what
  // follows are those of `contentVersion` (see replay/model/content.h).
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
    host::TransferReport report;
    bool active = false;
    bool reading = true;
    bool received = false;  // waits for its client to read
  };

  Group& GroupOf(const std::string& url);
  bool Multiplexed(const Group& group) const;
  void Dispatch(Group& group);
  void OpenConnection(Group& group);
  void OpenPlanned();
  void Send(Group& group, host::TransferId id, Connection connection);
  void HurryBlocking(Group& group);
  void Respond(host::TransferId id);
  void Receive(host::TransferId id);
  void ReceiveBytes(uint64_t id, const Request* recorded, host::Urgency urgency, std::function<void()> done);
  void Complete(host::TransferId id);
  void Leave(Group& group, host::TransferId id, bool connectionIsGood);

  host::VirtualClock& clock_;
  const NetworkProfile profile_;
  const RecordedNetwork& recorded_;
  const host::HostSettings settings_;
  const Server server_;
  SharedLink link_;
  struct Planned {
    Group* group;
    size_t count;
  };

  std::map<std::string, Group> groups_;
  std::deque<Planned> planned_;                     // by Preconnect
  std::map<host::TransferId, Transfer> transfers_;  // under way
  host::TransferId lastId_ = 0;
  uint64_t contentVersion_ = 0;
  size_t connections_ = 0;
};

}  // namespace replay

#endif  // REPLAY_MODEL_NETWORK_MODEL_H_
