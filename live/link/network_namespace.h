// Network namespaces and the interfaces in them. Used by main, on the program's only thread: unshare and
// setns move the calling thread.
#ifndef LIVE_LINK_NETWORK_NAMESPACE_H_
#define LIVE_LINK_NETWORK_NAMESPACE_H_

#include <cstdint>
#include <stdexcept>
#include <string>

namespace live_link {

// The system does not let this user have network namespaces or TUN devices.
struct NotPermitted : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Moves the thread into a new network namespace, whose only interface is an unconfigured loopback. A user who
// may not do that gets a new user namespace first, in which the user's own id stands for itself. Returns a
// descriptor for EnterNetworkNamespace, open until the program ends. Throws NotPermitted.
int EnterNewNetworkNamespace();

// Moves the thread into the namespace of that descriptor. Throws std::system_error.
void EnterNetworkNamespace(int networkNamespace);

// Writes a value below /proc/sys/net of the thread's namespace; says whether the system let it.
bool SetNetworkSetting(const std::string& name, const std::string& value);

// What an interface is to be given; 0 and null leave what is there.
struct InterfaceSettings {
  const char* name = nullptr;
  const char* address = nullptr;  // of IPv4, in dotted form
  const char* netmask = nullptr;
  int mtu = 0;
  // Between the kernel's network stack and the interface's reader; stays as it is (500 packets) in a user
  // namespace, where it cannot be changed.
  int queuePackets = 0;
};

// Configures an interface of the thread's namespace and brings it up. Throws std::system_error.
void BringUp(const InterfaceSettings& settings);

// Packets that the interface dropped in either direction. Throws std::system_error.
uint64_t PacketsDroppedBy(const char* interfaceName);

// Whether a socket of the thread's namespace listens on the TCP port, at `address` or at all addresses.
bool IsListening(uint16_t port, const char* address);

}  // namespace live_link

#endif  // LIVE_LINK_NETWORK_NAMESPACE_H_
