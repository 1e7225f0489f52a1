// The network of a simulated page load: sockets per group, round trips, server times and the shared access
// link. It answers with the recorded responses. One thread. docs/replay-model.md describes the rules and
// their limits.
#ifndef REPLAY_MODEL_NETWORK_MODEL_H_
#define REPLAY_MODEL_NETWORK_MODEL_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/settings.h"
#include "host/task_scope.h"
#include "host/transport.h"
#include "host/virtual_clock.h"
#include "replay/model/network_costs.h"
#include "replay/model/network_times.h"
#include "replay/model/recorded_network.h"
#include "replay/model/replay_options.h"
#include "replay/model/shared_link.h"
#include "replay/recording/recording.h"

namespace replay {

class NetworkModel final : public host::Transport {
 public:
  // The server: returns the recorded request that answers a transfer, or null if none was recorded (the
  // answer is then a 404). The record must outlive the model.
  using Server = std::function<const Request*(const host::TransferRequest&)>;

  NetworkModel(host::VirtualClock& clock, const NetworkProfile& profile, const NetworkCosts& costs,
               const RecordedNetwork& recorded, const host::HostSettings& settings, Server server);

  host::TransferId Start(const host::TransferRequest& request, host::TransferClient& client) override;
  void SetUrgency(host::TransferId id, host::Urgency urgency) override;
  void SetReading(host::TransferId id, bool reading) override;
  host::TransferReport Cancel(host::TransferId id) override;
  void Preconnect(const std::string& url, size_t count, net::URLRequestContext* context) override;

  // How many connections began their set-up since the last Reset, and how many of these have carried no
  // request.
  size_t Connections() const { return connections_; }
  size_t UnusedConnections() const;

  // Closes every connection. May be called only while no transfer is running. From then on, bodies are those
  // of `contentVersion` (see replay/model/content.h).
  void Reset(uint64_t contentVersion);

 private:
  // What a connection has carried.
  struct Flow {
    int64_t delivered = 0;     // bytes
    size_t receiving[2] = {};  // transfers whose response is coming, by urgency
  };
  struct Connection {
    int64_t connectUs;  // its set-up began
    bool fresh = true;  // has carried nothing yet
    std::shared_ptr<Flow> flow;
  };
  struct Group {
    RecordedGroup recorded;
    std::string host;
    bool hasSession = false;          // a TLS session that can be resumed
    std::vector<uint64_t> settingUp;  // on the link: the certificates of connections
    GroupTimes times;
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
    bool received = false;       // waits for its client to read
    std::shared_ptr<Flow> flow;  // once active
    bool receiving = false;      // counted there
    int64_t receivedBytes = 0;   // in windows that are complete, the header block among them
    int64_t deliveredBytes = 0;  // of the body, to the client
  };

  Group& GroupOf(const std::string& url);
  bool Multiplexed(const Group& group) const;
  size_t MostBesidePreloads(const Group& group) const;
  static size_t& ReceivingLike(const Transfer& transfer);
  void BecomeUrgent(Transfer& transfer, host::TransferId id, host::Urgency urgency);
  void Dispatch(Group& group);
  static Connection NewConnection(int64_t connectUs, bool fresh);
  int64_t LookUp(Group& group);
  void OpenConnection(Group& group);
  void ReceiveCertificates(Group& group, int64_t connectUs);
  void HurrySetUps(Group& group);
  void Opened(Group& group, int64_t connectUs);
  void OpenPlanned();
  void Send(Group& group, host::TransferId id, const Connection& connection);
  void HurryBlocking(Group& group);
  void Respond(host::TransferId id);
  void Receive(host::TransferId id);
  void ReceiveWindow(host::TransferId id);
  void Complete(host::TransferId id);
  void Leave(Group& group, host::TransferId id, bool connectionIsGood);

  host::VirtualClock& clock_;
  const NetworkProfile profile_;
  const NetworkCosts costs_;
  const RecordedNetwork& recorded_;
  const host::HostSettings settings_;
  const Server server_;
  SharedLink link_;
  struct Planned {
    Group* group;
    size_t count;
  };

  std::map<std::string, Group> groups_;
  std::map<std::string, int64_t> knownNames_;       // host names, and from when on
  std::deque<Planned> planned_;                     // by Preconnect
  std::map<host::TransferId, Transfer> transfers_;  // under way
  host::TransferId lastId_ = 0;
  uint64_t contentVersion_ = 0;
  size_t connections_ = 0;
  host::TaskScope tasks_;
};

}  // namespace replay

#endif  // REPLAY_MODEL_NETWORK_MODEL_H_
