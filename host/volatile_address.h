// Whether a URL looks like one that is made anew for every load. Any thread.
#ifndef HOST_VOLATILE_ADDRESS_H_
#define HOST_VOLATILE_ADDRESS_H_

#include <string_view>

namespace host {

// It holds a run of ten or more digits, as a time or a random number has, or one of sixteen or more
// hexadecimal ones with digits and letters among them, as an identifier has. Names of files that are derived
// from their content look the same; seen twice, they are told apart.
bool LooksVolatile(std::string_view url);

}  // namespace host

#endif  // HOST_VOLATILE_ADDRESS_H_
