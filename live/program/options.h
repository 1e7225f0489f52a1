// The command line of kiv_proxy.
#ifndef LIVE_PROGRAM_OPTIONS_H_
#define LIVE_PROGRAM_OPTIONS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace live {

enum class Task { Browse, MakeCa, Forget };

struct ProxyOptions {
  Task task = Task::Browse;

  // Towards the browser. The password is empty unless `listenAnywhere` is set.
  std::string address = "127.0.0.1";  // numeric, IPv6 without brackets
  uint16_t port = 8080;
  bool listenAnywhere = false;
  std::string password;

  // Inside of TLS.
  bool intercept = false;
  std::string caFolder;                // of the certificate authority; empty for none
  std::vector<std::string> onlyHosts;  // of Task::MakeCa: what it may certify; empty for everything

  // Towards the servers.
  std::string upstreamCa;              // a PEM file; empty for the system's certificates
  std::vector<std::string> connectTo;  // as UpstreamSettings::connectTo
  std::vector<uint16_t> tunnelPorts;   // that tunnels may lead to besides 443 and 80

  // Preloading.
  bool preload = true;
  bool preconnect = true;
  std::map<std::string, std::string> properties;  // system properties by name
  std::string pluginPath;                         // empty: the library beside the program

  // What is kept and told.
  std::string statePath;
  std::string jsonPath;  // empty for none, "-" for standard output
  std::string harPath;   // empty for none
  bool allowPrivate = false;
  bool mark = false;
  std::optional<int> logLevel;  // of the plugin; nothing: no log

  std::string forgetHost;  // of Task::Forget: a host name; empty for everything
};

// Reads the arguments after the program's name, and the files that they name. Returns nothing after --help or
// --version, whose text goes to `out`. Throws std::runtime_error with one line that names the option and what
// it must be.
std::optional<ProxyOptions> ParseProxyOptions(const std::vector<std::string>& arguments, std::ostream& out);

}  // namespace live

#endif  // LIVE_PROGRAM_OPTIONS_H_
