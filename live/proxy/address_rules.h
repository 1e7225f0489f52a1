// Which addresses belong to this machine or a local network. Pure functions.
#ifndef LIVE_PROXY_ADDRESS_RULES_H_
#define LIVE_PROXY_ADDRESS_RULES_H_

#include <string>
#include <string_view>

namespace live {

// Whether an address ("192.0.2.1", "2001:db8::1") belongs to this machine, a private network or a single
// link, or is not an address of the public internet for another reason. A text that is not an address counts
// as private.
bool IsPrivateAddress(std::string_view address);

}  // namespace live

#endif  // LIVE_PROXY_ADDRESS_RULES_H_
