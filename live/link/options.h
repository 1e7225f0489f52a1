// The command line of kiv_link.
#ifndef LIVE_LINK_OPTIONS_H_
#define LIVE_LINK_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "live/link/link_queue.h"

namespace live_link {

struct LinkOptions {
  std::string profile;  // its name, or "custom"
  double rttMs = 0;
  double downMbit = 0;
  double upMbit = 0;
  LinkSettings down, up;
  std::vector<std::vector<std::string>> servers;  // commands with their arguments, the client's as well
  std::vector<std::string> client;
  std::vector<uint16_t> readyPorts;  // the client waits until the servers listen on these
  std::string jsonPath;              // empty when not wanted, "-" for standard output
};

struct BadOption : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Reads the arguments after the program's name. Returns nothing after --help or --version, whose text goes to
// `out`. Throws BadOption with one line that names the option and what is wrong.
std::optional<LinkOptions> ParseLinkOptions(const std::vector<std::string>& arguments, std::ostream& out);

}  // namespace live_link

#endif  // LIVE_LINK_OPTIONS_H_
