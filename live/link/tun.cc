#include "live/link/tun.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "live/link/network_namespace.h"

namespace live_link {

int OpenTun(const char* name) {
  const int tun = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (tun < 0) {
    throw NotPermitted(
        fmt::format("cannot open /dev/net/tun ({}); it must exist and be writable", strerror(errno)));
  }
  ifreq fields{};
  snprintf(fields.ifr_name, sizeof(fields.ifr_name), "%s", name);
  fields.ifr_flags = IFF_TUN | IFF_NO_PI;  // IP packets with nothing before them, and no offload
  if (ioctl(tun, TUNSETIFF, &fields) != 0) {
    throw NotPermitted(
        fmt::format("cannot create the TUN device {} ({}); run as root", name, strerror(errno)));
  }
  return tun;
}

std::vector<std::byte> ReadPacket(int tun) {
  std::array<std::byte, kMtu> buffer;
  ssize_t size = 0;
  do {
    size = read(tun, buffer.data(), buffer.size());
  } while (size < 0 && errno == EINTR);
  if (size < 0 && errno != EAGAIN)
    throw std::system_error(errno, std::generic_category(), "cannot read a packet");
  if (size <= 0) return {};
  return {buffer.begin(), buffer.begin() + size};
}

void WritePacket(int tun, std::span<const std::byte> packet) {
  ssize_t size = 0;
  do {
    size = write(tun, packet.data(), packet.size());
  } while (size < 0 && errno == EINTR);
  if (size < 0) throw std::system_error(errno, std::generic_category(), "cannot write a packet");
}

}  // namespace live_link
