// The addresses of the two sides of the link.
#ifndef LIVE_LINK_ADDRESSES_H_
#define LIVE_LINK_ADDRESSES_H_

namespace live_link {

// Not "tun0", because browsers ignore interfaces with that name.
inline constexpr const char* kInterface = "link0";
inline constexpr const char* kServerAddress = "10.77.0.1";
inline constexpr const char* kClientAddress = "10.77.0.2";
inline constexpr const char* kNetmask = "255.255.0.0";

// All of 10.77.1.x belongs to the server as well, so that each server name can have its own address: on the
// loopback interface, an address with a netmask makes every address in that network local.
inline constexpr const char* kMoreServerAddresses = "10.77.1.1";
inline constexpr const char* kMoreServerAddressesNetmask = "255.255.255.0";

}  // namespace live_link

#endif  // LIVE_LINK_ADDRESSES_H_
