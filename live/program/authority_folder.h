// The folder of the certificate authority that a browser is told to trust. Any thread.
#ifndef LIVE_PROGRAM_AUTHORITY_FOLDER_H_
#define LIVE_PROGRAM_AUTHORITY_FOLDER_H_

#include <string>
#include <vector>

#include "live/proxy/ca/authority.h"

namespace live {

// The authority in the folder, which is made when there is none; `onlyHosts` are for a new one. Beside it is
// then the file "spki", with what Chromium's --ignore-certificate-errors-spki-list wants. Throws
// std::runtime_error with one line.
Authority OpenAuthority(const std::string& folder, const std::vector<std::string>& onlyHosts = {});

// How to tell a browser to trust it, in a profile of its own; several lines.
std::string HowToTrust(const Authority& authority, const std::string& folder);

}  // namespace live

#endif  // LIVE_PROGRAM_AUTHORITY_FOLDER_H_
