#include "live/program/hosts_file.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "net/http/header_text.h"

namespace live {
namespace {

bool IsAddress(const std::string& text, int family) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return inet_pton(family, text.c_str(), address.data()) == 1;
}

bool IsName(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_';
  });
}

}  // namespace

std::vector<std::string> ReadHostsFile(const std::string& path, const std::string& port) {
  std::ifstream file(path);
  std::vector<std::string> rules;
  std::string line;
  for (size_t number = 1; std::getline(file, line); ++number) {
    const auto refuse = [&](const std::string& what) {
      throw std::runtime_error(path + ":" + std::to_string(number) + ": " + what);
    };
    std::istringstream words(line.substr(0, line.find('#')));
    std::string address, name;
    if (!(words >> address)) continue;
    const bool isIpv6 = IsAddress(address, AF_INET6);
    if (!isIpv6 && !IsAddress(address, AF_INET)) refuse("'" + address + "' is not an IP address");
    while (words >> name) {
      std::transform(name.begin(), name.end(), name.begin(), net::ToLowerAscii);
      if (!IsName(name)) refuse("'" + name + "' is not a host name");
      rules.push_back(name + "::" + (isIpv6 ? "[" + address + "]" : address) + ":" + port);
    }
    if (name.empty()) refuse("no name follows '" + address + "'");
  }
  if (!file.eof() || file.bad()) throw std::runtime_error(path + ": cannot be read");
  return rules;
}

}  // namespace live
