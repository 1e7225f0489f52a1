#include "live/link/options.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "live/link/addresses.h"
#include "live/link/tun.h"
#include "plugin/version.h"
#include "programs/command_line.h"
#include "replay/model/network_profiles.h"

namespace live_link {
namespace {

constexpr const char* kDescription =
    R"(Runs servers and a client on this machine with distance between them: a link with delay, a rate and a queue.

Both sides run in network namespaces of their own. The servers have the address {0} (and all of 10.77.1.x), the
client has {1}; the commands find them in KIV_LINK_SERVER and KIV_LINK_CLIENT. A server command is a line for sh;
so is the client's when it is a single argument. When the client has ended, the servers are ended too.)";

constexpr const char* kExamples = R"(Examples:
  kiv_link --profile 3g --server 'node serve.mjs --bind 0.0.0.0' --ready 80 -- 'curl -s http://$KIV_LINK_SERVER/'
  kiv_link --rtt 100 --down 10 --up 2 --queue 64kB --json link.json --server 'iperf3 -s' --ready 5201 -- iperf3 -c 10.77.0.1

Exit status: the client's; 1 after a fault or when a server fails, 2 after a bad option, 3 when this machine was too
busy to deliver packets in time (no figures are given then), 4 when namespaces are not permitted.)";

constexpr double kQueueSeconds = 0.5;
constexpr double kLeastQueuePackets = 100;
constexpr double kMostHeldBytes = 64e6;  // in each direction

// The values as given; each is read by a function below, so that all errors look alike.
struct Texts {
  std::string profile = "4g";
  std::string rtt, down, up, queue;
  std::vector<std::string> servers, readyPorts;
};

[[noreturn]] void Refuse(const std::string& option, const std::string& what) {
  throw BadOption(option + " " + what);
}

// A decimal number that fills the text.
template <typename Number>
std::optional<Number> WholeText(std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

double Figure(const char* option, const std::string& text, const std::optional<double>& ofProfile,
              const char* unit, double least, double most) {
  if (text.empty() && !ofProfile) Refuse(option, "must be given, because the profile has no such figure");
  if (text.empty()) return *ofProfile;
  const auto value = WholeText<double>(text);
  if (!value || !(*value >= least && *value <= most)) {
    Refuse(option, fmt::format("must be a number of {} from {} to {}, got '{}'", unit, least, most, text));
  }
  return *value;
}

uint16_t Port(const std::string& text) {
  const auto value = WholeText<uint16_t>(text);
  if (!value || *value == 0) Refuse("--ready", fmt::format("must be a port from 1 to 65535, got '{}'", text));
  return *value;
}

// "50" packets, "64kB" or "65000B"; the default depends on the rate.
void SetQueue(LinkSettings& settings, const std::string& text) {
  if (text.empty()) {
    const double bytes = static_cast<double>(settings.bitsPerSecond) / 8 * kQueueSeconds;
    settings.queuePackets = static_cast<size_t>(std::max(kLeastQueuePackets, std::ceil(bytes / kMtu)));
    return;
  }
  const size_t split = std::min(text.find_first_not_of("0123456789"), text.size());
  const auto number = WholeText<uint32_t>(std::string_view(text).substr(0, split));
  const std::string unit = text.substr(split);
  const bool inBytes = unit == "B" || unit == "kB";
  const size_t value = size_t{number.value_or(0)} * (unit == "kB" ? 1000 : 1);
  if ((!unit.empty() && !inBytes) || value < (inBytes ? size_t{kMtu} : 1)) {
    Refuse(
        "--queue",
        fmt::format("must be a number of packets like 50, or at least {} bytes like 64kB or 65000B, got '{}'",
                    kMtu, text));
  }
  (inBytes ? settings.queueBytes : settings.queuePackets) = value;
}

LinkSettings Settings(double rttMs, double mbit, const std::string& queue, const char* direction) {
  LinkSettings settings;
  settings.bitsPerSecond = std::llround(mbit * 1e6);
  settings.delayNs = std::llround(rttMs * 1e6 / 2);
  SetQueue(settings, queue);
  const double queueBytes =
      std::min(static_cast<double>(settings.queueBytes), static_cast<double>(settings.queuePackets) * kMtu);
  const double heldBytes = queueBytes + mbit * 1e6 / 8 * rttMs / 2e3;
  if (heldBytes > kMostHeldBytes) {
    Refuse("--rtt, --queue and " + std::string(direction),
           fmt::format("must let the link hold at most {:.0f} MB, but it would hold {:.0f} MB",
                       kMostHeldBytes / 1e6, heldBytes / 1e6));
  }
  return settings;
}

std::string ProfileNames() {
  std::vector<std::string_view> names;
  for (const replay::NetworkProfile& profile : replay::kNetworkProfiles) names.push_back(profile.name);
  return fmt::format("{}", fmt::join(names, ", "));
}

LinkOptions OptionsOf(const Texts& texts) {
  const replay::NetworkProfile* const profile = replay::FindNetworkProfile(texts.profile);
  if (profile == nullptr) {
    Refuse("--profile", fmt::format("must be one of {}, got '{}'", ProfileNames(), texts.profile));
  }
  LinkOptions options;
  const bool asInProfile = texts.rtt.empty() && texts.down.empty() && texts.up.empty();
  options.profile = asInProfile ? texts.profile : "custom";
  options.rttMs = Figure("--rtt", texts.rtt, profile->rttMs, "milliseconds", 0, 10000);
  options.downMbit = Figure("--down", texts.down, profile->downMbit, "Mbit/s", 0.01, 1000);
  options.upMbit = Figure("--up", texts.up, profile->upMbit, "Mbit/s", 0.01, 1000);
  options.down = Settings(options.rttMs, options.downMbit, texts.queue, "--down");
  options.up = Settings(options.rttMs, options.upMbit, texts.queue, "--up");
  for (const std::string& server : texts.servers) options.servers.push_back({"/bin/sh", "-c", server});
  for (const std::string& port : texts.readyPorts) options.readyPorts.push_back(Port(port));
  return options;
}

}  // namespace

std::optional<LinkOptions> ParseLinkOptions(const std::vector<std::string>& arguments, std::ostream& out) {
  Texts texts;
  std::string jsonPath;
  CLI::App app(fmt::format(kDescription, kServerAddress, kClientAddress), "kiv_link");
  app.footer(kExamples);
  app.set_version_flag("--version", "kiv_link " KIV_VERSION);
  app.get_formatter()->column_width(26);
  app.get_formatter()->label("OPTIONS", "OPTIONS] --server CMD [--server CMD ...] -- CLIENT [ARGUMENTS ...");
  const auto text = [&app](const char* name, std::string& value, const std::string& what, const char* unit) {
    return app.add_option(name, value, what)->type_name(unit);
  };
  const auto list = [&app](const char* name, std::vector<std::string>& values, const char* what,
                           const char* unit) {
    return app.add_option(name, values, what)->type_name(unit)->allow_extra_args(false);
  };
  list("--server", texts.servers, "run this line with sh on the server's side; may be repeated", "CMD");
  list("--ready", texts.readyPorts,
       "start the client when a server listens on this TCP port; may be repeated", "PORT");
  text("--profile", texts.profile, "the network: " + ProfileNames(), "NAME")->capture_default_str();
  text("--rtt", texts.rtt, "round trip time, instead of the profile's", "MS");
  text("--down", texts.down, "rate towards the client, instead of the profile's", "MBIT");
  text("--up", texts.up, "rate towards the servers, instead of the profile's", "MBIT");
  text("--queue", texts.queue,
       "what may wait in each direction, in packets or as in 64kB [half a second, at least 100 packets]",
       "SIZE");
  text("--json", jsonPath, "write the figures as one JSON object; - is standard output", "FILE");

  // What follows "--" is the client's own and nothing to be understood here.
  const auto separator = std::find(arguments.begin(), arguments.end(), "--");
  try {
    if (!programs::ParseArguments(app, {arguments.begin(), separator}, out)) return std::nullopt;
  } catch (const std::runtime_error& error) {
    throw BadOption(std::string(error.what()) + "; the client's command comes after --");
  }
  if (std::distance(separator, arguments.end()) < 2) {
    throw BadOption("the client's command is missing; give it last, after -- (see --help)");
  }
  LinkOptions options = OptionsOf(texts);
  options.jsonPath = jsonPath;
  options.client.assign(separator + 1, arguments.end());
  if (options.client.size() == 1) options.client = {"/bin/sh", "-c", options.client[0]};
  return options;
}

}  // namespace live_link
