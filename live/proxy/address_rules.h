// Which addresses belong to the own machine or network. Pure functions.
#ifndef LIVE_PROXY_ADDRESS_RULES_H_
#define LIVE_PROXY_ADDRESS_RULES_H_

#include <string>
#include <string_view>

namespace live {

// Whether an address ("192.0.2.1", "2001:db8::1") is of the machine itself, of a private network, of one
// link, or otherwise none of the public internet. What is no address is taken for private.
bool IsPrivateAddress(std::string_view address);

}  // namespace live

#endif  // LIVE_PROXY_ADDRESS_RULES_H_
