// TUN devices: network interfaces whose packets this program reads and writes. One thread.
#ifndef LIVE_LINK_TUN_H_
#define LIVE_LINK_TUN_H_

#include <cstddef>
#include <span>
#include <vector>

namespace live_link {

// The largest IP packet. The kernel splits segments to this size, because the device offers no segmentation.
inline constexpr int kMtu = 1500;

// Creates a TUN device in the calling thread's network namespace. The descriptor does not block and stays
// open until the program ends. Throws NotPermitted (network_namespace.h).
int OpenTun(const char* name);

// The next packet that the kernel has sent to the device; empty if there is none. Throws std::system_error.
std::vector<std::byte> ReadPacket(int tun);

// Passes a packet to the kernel as if the device had received it. Throws std::system_error.
void WritePacket(int tun, std::span<const std::byte> packet);

}  // namespace live_link

#endif  // LIVE_LINK_TUN_H_
