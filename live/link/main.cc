// kiv_link: sets up the namespaces and the link, runs the commands on both sides, and reports. One thread.
#include <fmt/format.h>
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>

#include "live/link/addresses.h"
#include "live/link/commands.h"
#include "live/link/network_namespace.h"
#include "live/link/options.h"
#include "live/link/packet_shuttle.h"
#include "live/link/report.h"
#include "live/link/tun.h"
#include "replay/output_file.h"

namespace live_link {
namespace {

constexpr int kFault = 1;
constexpr int kBadOption = 2;
constexpr int kStarved = 3;
constexpr int kNotPermitted = 4;

constexpr int kDeviceQueuePackets = 20000;  // longer than it ever gets while this program runs
constexpr int64_t kReadyTimeoutNs = 30'000'000'000;
constexpr int64_t kReadyPauseNs = 100'000'000;  // looking takes the kernel milliseconds

// One end of the link, in a namespace of its own.
struct Side {
  int networkNamespace = -1;
  int tun = -1;
};

// Leaves the thread in the side's namespace.
Side MakeSide(const char* address) {
  Side side;
  side.networkNamespace = EnterNewNetworkNamespace();
  // Connections must not learn from earlier ones, and any user may listen on any port. The interface carries
  // no IPv6, whose announcements of its own would be counted as the commands' traffic.
  for (const auto& [name, value] :
       {std::pair("ipv4/tcp_no_metrics_save", "1"), std::pair("ipv4/ip_unprivileged_port_start", "0"),
        std::pair("ipv6/conf/default/disable_ipv6", "1")}) {
    if (!SetNetworkSetting(name, value))
      fmt::print(stderr, "kiv_link: cannot set net/{} to {}\n", name, value);
  }
  side.tun = OpenTun(kInterface);
  BringUp({.name = "lo"});
  BringUp({.name = kInterface,
           .address = address,
           .netmask = kNetmask,
           .mtu = kMtu,
           .queuePackets = kDeviceQueuePackets});
  return side;
}

// For this process alone: what it starts runs as it would without it. Returns in words what the system
// allowed.
std::string RaisePriority() {
  const sched_param param = {.sched_priority = 10};
  if (sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &param) == 0) return "real-time priority";
  const sched_param none = {.sched_priority = 0};
  constexpr int kNice = -20;
  if (sched_setscheduler(0, SCHED_OTHER | SCHED_RESET_ON_FORK, &none) == 0 &&
      setpriority(PRIO_PROCESS, 0, kNice) == 0) {
    return fmt::format("nice {}", kNice);
  }
  return "normal priority";
}

struct Session {
  const LinkOptions& options;
  int signals = -1;
  Link link = {};
  std::vector<Command> commands = {};           // the servers, then the client
  std::optional<int> endSignal = std::nullopt;  // which asked this program to end
};

// Carries packets until something has happened to a command or a signal has come, or the deadline has passed.
// Throws when a server has failed.
void CarryAndWatch(Session& session, std::optional<int64_t> deadlineNs) {
  CarryPackets(session.link, session.signals, deadlineNs);
  session.endSignal = HandleSignals(session.signals, session.commands);
  for (const Command& command : session.commands) {
    if (!command.isClient && command.status.value_or(0) != 0) {
      throw std::runtime_error(fmt::format("the server command '{}' ended with status {}",
                                           command.arguments.back(), *command.status));
    }
  }
}

// Until somebody listens on each of the ports. The thread is in the servers' namespace.
void WaitForServers(Session& session) {
  const int64_t endNs = NowNs() + kReadyTimeoutNs;
  for (const uint16_t port : session.options.readyPorts) {
    while (!session.endSignal && !IsListening(port, kServerAddress)) {
      if (NowNs() > endNs) {
        throw std::runtime_error(
            fmt::format("--ready {0}: no server listens on port {0} of all addresses or of {1} after {2} s",
                        port, kServerAddress, kReadyTimeoutNs / 1'000'000'000));
      }
      CarryAndWatch(session, NowNs() + kReadyPauseNs);
    }
  }
}

// Until the client has ended, or a signal has come. Returns for how many seconds the client ran.
double RunCommands(Session& session) {
  for (Command& command : session.commands) {
    if (!command.isClient) Start(command);
  }
  WaitForServers(session);
  if (session.endSignal) return 0;
  Command& client = session.commands.back();
  const int64_t startNs = NowNs();
  Start(client);
  while (!session.endSignal && !client.status) CarryAndWatch(session, std::nullopt);
  return static_cast<double>(NowNs() - startNs) / 1e9;
}

uint64_t PacketsDroppedByDevices(const Side& client, const Side& server) {
  uint64_t dropped = 0;
  for (const Side* const side : {&client, &server}) {
    EnterNetworkNamespace(side->networkNamespace);
    dropped += PacketsDroppedBy(kInterface);
  }
  return dropped;
}

int Run(const std::vector<std::string>& arguments) {
  const auto options = ParseLinkOptions(arguments, std::cout);
  if (!options) return EXIT_SUCCESS;
  Session session = {.options = *options, .signals = TakeSignals()};
  const Side client = MakeSide(kClientAddress);
  const Side server = MakeSide(kServerAddress);
  BringUp({.name = "lo:1", .address = kMoreServerAddresses, .netmask = kMoreServerAddressesNetmask});
  session.link = MakeLink(server.tun, client.tun, options->down, options->up, LateBoundNs(options->rttMs));
  for (const auto& serverArguments : options->servers) {
    session.commands.push_back({.arguments = serverArguments, .networkNamespace = server.networkNamespace});
  }
  session.commands.push_back(
      {.arguments = options->client, .networkNamespace = client.networkNamespace, .isClient = true});

  RunFigures figures;
  figures.scheduling = RaisePriority();
  {
    struct CommandsEnder {
      ~CommandsEnder() { EndCommands(); }
    } const ender;
    figures.seconds = RunCommands(session);
    figures.down = session.link.down.counts;
    figures.up = session.link.up.counts;
    figures.lateness = session.link.lateness;
    figures.droppedByDevices = PacketsDroppedByDevices(client, server);
  }
  if (session.endSignal) return 128 + *session.endSignal;

  const int status = *session.commands.back().status;
  const std::string whyStarved = WhyStarved(figures);
  if (!whyStarved.empty()) {
    fmt::print(stderr, "kiv_link: this machine was too busy for reliable figures: {}\n", whyStarved);
    return status != EXIT_SUCCESS ? status : kStarved;
  }
  fmt::print(stderr, "{}", ReportText(*options, figures));
  if (!options->jsonPath.empty())
    replay::WriteOutput(options->jsonPath, ReportJson(*options, figures, status));
  return status;
}

}  // namespace
}  // namespace live_link

int main(int argc, char** argv) {
  using live_link::Run;
  try {
    return Run({argv + 1, argv + argc});
  } catch (const live_link::BadOption& error) {
    fmt::print(stderr, "kiv_link: {}\n", error.what());
    return live_link::kBadOption;
  } catch (const live_link::NotPermitted& error) {
    fmt::print(stderr, "kiv_link: {}\n", error.what());
    return live_link::kNotPermitted;
  } catch (const std::exception& error) {
    fmt::print(stderr, "kiv_link: {}\n", error.what());
    return live_link::kFault;
  }
}
