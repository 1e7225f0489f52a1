#include "live/program/options.h"

#include <arpa/inet.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "host/property_values.h"
#include "live/program/hosts_file.h"
#include "net/http/header_text.h"
#include "plugin/properties.h"
#include "plugin/version.h"
#include "programs/command_line.h"
#include "url/gurl.h"

namespace live {
namespace {

constexpr const char* kDescription =
    R"(A proxy for a browser on this machine that preloads what pages are going to need, through the preloading plugin.

It prints the address that it listens on, and then one line for each page load. Without a command it runs until it is
interrupted (Ctrl-C).)";

constexpr const char* kExamples = R"(Examples:
  kiv_proxy                                  listen on 127.0.0.1:8080
  kiv_proxy --listen 127.0.0.1:0 --har today.har
  kiv_proxy ca --ca-dir own-ca               make an authority, for a profile of its own
  kiv_proxy --intercept --ca-dir own-ca      with https
  kiv_proxy forget shop.example              forget what its pages have taught
Exit status: 0, 1 after a fault, 2 after bad options.)";

// Few, so that what the page asks for itself is never far behind.
constexpr const char* kPreloadLimit = "4";

// The values as given.
struct Texts {
  std::string listen = "127.0.0.1:8080";
  std::string preload = "on", preconnect = "on";
  std::string hostsFile, connectPort, passwordFile, logLevel, site;
  std::vector<std::string> properties, tunnelPorts;
};

[[noreturn]] void Refuse(const std::string& what) {
  throw std::runtime_error(what);
}

bool IsAddress(const std::string& text, int family, unsigned char* address) {
  return inet_pton(family, text.c_str(), address) == 1;
}

bool IsLoopback(const std::string& address) {
  unsigned char bytes[sizeof(in6_addr)] = {};
  if (IsAddress(address, AF_INET, bytes)) return bytes[0] == 127;
  return IsAddress(address, AF_INET6, bytes) && std::count(bytes, bytes + 15, 0) == 15 && bytes[15] == 1;
}

bool IsAnyAddress(const std::string& address) {
  unsigned char bytes[sizeof(in6_addr)] = {};
  return IsAddress(address, AF_INET, bytes) || IsAddress(address, AF_INET6, bytes);
}

// Whether there is a number from `least` on that fills the text.
bool IsNumber(std::string_view text, uint16_t least, uint16_t& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end && number >= least;
}

// "127.0.0.1:8080", "[::1]:8080", "localhost:8080".
void ReadListen(const std::string& text, ProxyOptions& options) {
  const size_t colon = text.rfind(':');
  std::string address = text.substr(0, std::min(colon, text.size()));
  const bool isBracketed = address.starts_with('[') && address.ends_with(']');
  if (isBracketed) address = address.substr(1, address.size() - 2);
  if (address == "localhost") address = "127.0.0.1";
  const std::string_view port =
      colon == std::string::npos ? std::string_view() : std::string_view(text).substr(colon + 1);
  if (!IsNumber(port, 0, options.port) || !IsAnyAddress(address) ||
      isBracketed != (address.find(':') != std::string::npos)) {
    Refuse("--listen must be an address and a port, such as 127.0.0.1:8080 or [::1]:0, got '" + text + "'");
  }
  options.address = address;
}

bool OnOrOff(const char* option, const std::string& text) {
  if (text != "on" && text != "off") {
    Refuse(std::string(option) + " must be on or off, got '" + text + "'");
  }
  return text == "on";
}

std::string ReadPassword(const std::string& path) {
  std::ifstream file(path);
  std::string password;
  struct stat found {};
  if (!std::getline(file, password) || stat(path.c_str(), &found) != 0) {
    Refuse("--password-file: " + path + ": no password can be read from its first line");
  }
  if (password.ends_with('\r')) password.pop_back();
  if (password.empty()) Refuse("--password-file: " + path + ": its first line is empty");
  if ((found.st_mode & 077) != 0) {
    Refuse("--password-file: " + path + ": other users can read it; run chmod 600 on it first");
  }
  return password;
}

void ReadAccess(const Texts& texts, ProxyOptions& options) {
  ReadListen(texts.listen, options);
  if (!options.listenAnywhere) {
    if (!IsLoopback(options.address)) {
      Refuse("--listen: " + options.address +
             " can be reached from other machines; add --listen-anywhere and --password-file, or listen on "
             "127.0.0.1");
    }
    if (!texts.passwordFile.empty()) Refuse("--password-file can be used only with --listen-anywhere");
    return;
  }
  if (texts.passwordFile.empty()) Refuse("--listen-anywhere needs a --password-file");
  options.password = ReadPassword(texts.passwordFile);
}

std::string DefaultStatePath() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state == '/') return std::string(state) + "/kiv_proxy/pages.db";
  const char* home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') {
    const passwd* const user = getpwuid(getuid());
    home = user != nullptr ? user->pw_dir : nullptr;
  }
  if (home == nullptr) Refuse("--state must be given, because there is no home folder");
  return std::string(home) + "/.local/state/kiv_proxy/pages.db";
}

void ReadProperties(const Texts& texts, ProxyOptions& options) {
  options.properties[kiv::property::kPreloadLimit.name] = kPreloadLimit;
  for (const std::string& text : texts.properties) {
    try {
      const auto [name, value] = host::ParsePropertySetting(text);
      options.properties[name] = value;
    } catch (const std::runtime_error& error) {
      Refuse(std::string("--prop: ") + error.what());
    }
  }
}

int ReadLogLevel(const std::string& text) {
  if (text.size() != 1 || text[0] < '0' || text[0] > '9') {
    Refuse("--log must be a whole number from 0 to 9, got '" + text + "'");
  }
  return text[0] - '0';
}

// "shop.test", or the URL of one of its pages.
std::string ReadSite(const std::string& text) {
  std::string host = text.find("://") != std::string::npos ? GURL(text).host() : text;
  std::transform(host.begin(), host.end(), host.begin(), net::ToLowerAscii);
  if (host.empty() || host.find_first_of("/:@? ") != std::string::npos) {
    Refuse("SITE must be a host name or a URL, got '" + text + "'");
  }
  return host;
}

void CheckReadable(const char* option, const std::string& path) {
  if (path.empty() || (std::filesystem::is_regular_file(path) && access(path.c_str(), R_OK) == 0)) return;
  Refuse(std::string(option) + ": " + path + ": cannot be read");
}

void ReadHosts(const Texts& texts, ProxyOptions& options) {
  uint16_t port = 0;
  if (!texts.connectPort.empty()) {
    if (texts.hostsFile.empty()) Refuse("--connect-port can be used only with --hosts");
    if (!IsNumber(texts.connectPort, 1, port)) {
      Refuse("--connect-port must be a whole number from 1 to 65535, got '" + texts.connectPort + "'");
    }
  }
  for (const std::string& text : texts.tunnelPorts) {
    if (!IsNumber(text, 1, port)) {
      Refuse("--tunnel-port must be a whole number from 1 to 65535, got '" + text + "'");
    }
    options.tunnelPorts.push_back(port);
  }
  if (texts.hostsFile.empty()) return;
  try {
    options.connectTo = ReadHostsFile(texts.hostsFile, texts.connectPort);
  } catch (const std::runtime_error& error) {
    Refuse(std::string("--hosts: ") + error.what());
  }
}

void ReadCa(const ProxyOptions& options) {
  const bool isNeeded = options.intercept || options.task == Task::MakeCa;
  if (isNeeded && options.caFolder.empty()) {
    Refuse(std::string(options.intercept ? "--intercept" : "ca") +
           " needs a --ca-dir, the folder of the certificate authority");
  }
  if (!isNeeded && !options.caFolder.empty())
    Refuse("--ca-dir can be used only with --intercept and the command ca");
  for (const std::string& host : options.onlyHosts) {
    if (host.empty() || host.find_first_of("/@? ") != std::string::npos) {
      Refuse("--only must be followed by host names, got '" + host + "'");
    }
  }
}

void ReadTexts(const Texts& texts, ProxyOptions& options) {
  ReadAccess(texts, options);
  options.preload = OnOrOff("--preload", texts.preload);
  options.preconnect = OnOrOff("--preconnect", texts.preconnect);
  ReadProperties(texts, options);
  if (!texts.logLevel.empty()) options.logLevel = ReadLogLevel(texts.logLevel);
  ReadHosts(texts, options);
  ReadCa(options);
  CheckReadable("--upstream-ca", options.upstreamCa);
  if (options.harPath == "-") Refuse("--har must be a file, because its end is overwritten with each write");
  if (!options.harPath.empty() && options.harPath == options.jsonPath) {
    Refuse("--har: '" + options.jsonPath + "' is already the file of --json");
  }
  if (options.statePath.empty()) options.statePath = DefaultStatePath();
  if (!texts.site.empty()) options.forgetHost = ReadSite(texts.site);
}

}  // namespace

std::optional<ProxyOptions> ParseProxyOptions(const std::vector<std::string>& arguments, std::ostream& out) {
  ProxyOptions options;
  Texts texts;
  CLI::App app(kDescription, "kiv_proxy");
  app.footer(kExamples);
  app.set_version_flag("--version", "kiv_proxy " KIV_VERSION);
  app.get_formatter()->column_width(36);
  const auto text = [](CLI::App& where, const char* name, std::string& value, const char* what,
                       const char* unit) {
    return where.add_option(name, value, what)->type_name(unit)->group("Options");
  };
  text(app, "--listen", texts.listen, "the address to listen on; port 0 means any free port", "ADDRESS:PORT")
      ->capture_default_str();
  app.add_flag("--listen-anywhere", options.listenAnywhere,
               "accept an address that other machines can reach; needs --password-file")
      ->group("Options");
  text(app, "--password-file", texts.passwordFile,
       "a file whose first line is the password that browsers must send", "FILE");
  app.add_flag("--intercept", options.intercept,
               "preload over https too, with certificates of an authority that the browser must trust")
      ->group("Options");
  const char* const caFolder = "the folder of the certificate authority, which is made if it is missing";
  text(app, "--ca-dir", options.caFolder, caFolder, "FOLDER");
  text(app, "--state", options.statePath,
       "the page database [kiv_proxy/pages.db in $XDG_STATE_HOME or ~/.local/state]", "FILE");
  text(app, "--preload", texts.preload, "off: answers come only from the cache and the servers", "on|off")
      ->capture_default_str();
  text(app, "--preconnect", texts.preconnect, "open connections before the page asks for them", "on|off")
      ->capture_default_str();
  app.add_option("--prop", texts.properties, "set a system property; may be repeated")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false)
      ->group("Options");
  text(app, "--plugin", options.pluginPath, "the plugin to load [libkiv_proc_plugin.so of the build]",
       "PATH");
  text(app, "--hosts", texts.hostsFile, "the addresses of host names, in the format of /etc/hosts", "FILE");
  text(app, "--connect-port", texts.connectPort, "the port to use for all names of --hosts", "PORT");
  app.add_option("--tunnel-port", texts.tunnelPorts, "a port that https may use besides 443; may be repeated")
      ->type_name("PORT")
      ->allow_extra_args(false)
      ->group("Options");
  text(app, "--upstream-ca", options.upstreamCa, "certificates to trust instead of the system's (PEM)",
       "FILE");
  text(app, "--json", options.jsonPath, "append a JSON object for each page load; - is standard output",
       "FILE");
  text(app, "--har", options.harPath, "record all loads in a new HAR file, for kiv_replay", "FILE");
  app.add_flag("--allow-private", options.allowPrivate,
               "let pages of public servers reach private addresses");
  app.add_flag("--mark", options.mark, "add a Server-Timing header that says where each response came from")
      ->group("Options");
  text(app, "--log", texts.logLevel,
       "print the plugin's log: 0 for warnings and errors, 3 to add infos, 4 to add debug lines", "LEVEL");

  CLI::App& forget = *app.add_subcommand("forget", "Forget the pages of a site, or all of them");
  forget.add_option("SITE", texts.site, "a host name, which includes the names below it, or a URL")
      ->type_name("");
  text(forget, "--state", options.statePath, "the page database", "FILE");
  CLI::App& ca =
      *app.add_subcommand("ca", "Make a certificate authority, and print how to make a browser trust it");
  text(ca, "--ca-dir", options.caFolder, caFolder, "FOLDER");
  ca.add_option("--only", options.onlyHosts, "the only host names (and names below them) that it may certify")
      ->type_name("HOST ...")
      ->group("Options");
  app.require_subcommand(0, 1);

  if (!programs::ParseArguments(app, arguments, out)) return std::nullopt;
  if (forget.parsed()) options.task = Task::Forget;
  if (ca.parsed()) options.task = Task::MakeCa;
  ReadTexts(texts, options);
  return options;
}

}  // namespace live
