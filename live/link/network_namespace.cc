#include "live/link/network_namespace.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <system_error>

namespace live_link {
namespace {

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

bool WriteFile(const std::string& path, const std::string& text) {
  const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(file);
  return written;
}

void EnterNewUserNamespace() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWUSER) != 0) {
    throw NotPermitted(fmt::format(
        "cannot create a user namespace ({}); run as root, or let users have namespaces", strerror(errno)));
  }
  WriteFile("/proc/self/setgroups", "deny");  // must precede the map of groups
  if (!WriteFile("/proc/self/uid_map", fmt::format("{0} {0} 1", user)) ||
      !WriteFile("/proc/self/gid_map", fmt::format("{0} {0} 1", group))) {
    throw NotPermitted(fmt::format("cannot map the user into the new namespace ({})", strerror(errno)));
  }
}

// Sets one property of the interface by ioctl.
void Set(int socket, unsigned long request, ifreq& fields, const char* what) {
  if (ioctl(socket, request, &fields) != 0)
    ThrowErrno(fmt::format("cannot set {} of {}", what, fields.ifr_name));
}

void SetAddress(int socket, unsigned long request, ifreq fields, const char* address, const char* what) {
  sockaddr_in value{};
  value.sin_family = AF_INET;
  inet_pton(AF_INET, address, &value.sin_addr);
  static_assert(sizeof(value) <= sizeof(fields.ifr_addr));
  memcpy(&fields.ifr_addr, &value, sizeof(value));
  Set(socket, request, fields, what);
}

// Looks for a listener in a table of the kernel such as /proc/net/tcp, whose lines read
// "0: 0100007F:1F90 00000000:0000 0A ...": local address and port, remote ones, state.
bool TableHasListener(const char* path, uint16_t port, const std::string& address) {
  constexpr unsigned kListens = 0x0A;
  std::ifstream table(path);
  std::string line;
  while (std::getline(table, line)) {
    std::array<char, 33> local{};
    unsigned localPort = 0, state = 0;
    if (sscanf(line.c_str(), "%*s %32[0-9A-F]:%x %*[0-9A-F]:%*x %x", local.data(), &localPort, &state) != 3)
      continue;
    const std::string_view where = local.data();
    const bool everywhere = where.find_first_not_of('0') == std::string_view::npos;
    if (state == kListens && localPort == port && (everywhere || where.ends_with(address))) return true;
  }
  return false;
}

}  // namespace

int EnterNewNetworkNamespace() {
  if (unshare(CLONE_NEWNET) != 0) {
    if (errno != EPERM)
      throw NotPermitted(fmt::format("cannot create a network namespace ({})", strerror(errno)));
    EnterNewUserNamespace();
    if (unshare(CLONE_NEWNET) != 0) {
      throw NotPermitted(fmt::format(
          "cannot create a network namespace inside a user namespace ({}); run as root", strerror(errno)));
    }
  }
  const int networkNamespace = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  if (networkNamespace < 0) ThrowErrno("cannot open /proc/thread-self/ns/net");
  return networkNamespace;
}

void EnterNetworkNamespace(int networkNamespace) {
  if (setns(networkNamespace, CLONE_NEWNET) != 0) ThrowErrno("cannot enter the network namespace");
}

bool SetNetworkSetting(const std::string& name, const std::string& value) {
  return WriteFile("/proc/sys/net/" + name, value);
}

void BringUp(const InterfaceSettings& settings) {
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) ThrowErrno("cannot open a socket to configure interfaces");
  ifreq fields{};
  snprintf(fields.ifr_name, sizeof(fields.ifr_name), "%s", settings.name);
  if (settings.mtu != 0) {
    fields.ifr_mtu = settings.mtu;
    Set(socket, SIOCSIFMTU, fields, "the MTU");
  }
  if (settings.queuePackets != 0) {
    fields.ifr_qlen = settings.queuePackets;
    if (ioctl(socket, SIOCSIFTXQLEN, &fields) != 0 && errno != EPERM) {
      ThrowErrno(fmt::format("cannot set the queue length of {}", settings.name));
    }
  }
  if (settings.address != nullptr) {
    SetAddress(socket, SIOCSIFADDR, fields, settings.address, "the address");
    SetAddress(socket, SIOCSIFNETMASK, fields, settings.netmask, "the netmask");
  }
  fields.ifr_flags = IFF_UP;
  Set(socket, SIOCSIFFLAGS, fields, "the flags");
  close(socket);
}

uint64_t PacketsDroppedBy(const char* interfaceName) {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) ThrowErrno("cannot read the counters of the interfaces");
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> all(first, freeifaddrs);
  for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    // One entry per interface has its counters; the address in it is of the hardware, which a TUN device has
    // not.
    if (each->ifa_data == nullptr || strcmp(each->ifa_name, interfaceName) != 0) continue;
    const auto* const counters = static_cast<const rtnl_link_stats*>(each->ifa_data);
    return uint64_t{counters->tx_dropped} + counters->rx_dropped;
  }
  throw std::runtime_error(fmt::format("the interface {} has gone", interfaceName));
}

bool IsListening(uint16_t port, const char* address) {
  in_addr_t bytes = 0;
  inet_pton(AF_INET, address, &bytes);
  const std::string asPrinted =
      fmt::format("{:08X}", bytes);  // in the byte order of memory, as the kernel prints it
  // The second one has mapped addresses, which end in that of IPv4.
  return TableHasListener("/proc/thread-self/net/tcp", port, asPrinted) ||
         TableHasListener("/proc/thread-self/net/tcp6", port, asPrinted);
}

}  // namespace live_link
