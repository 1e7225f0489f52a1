// Which data of a page may be written to disk. Pure functions over text. Any thread.
#ifndef LIVE_STATE_PRIVACY_RULES_H_
#define LIVE_STATE_PRIVACY_RULES_H_

#include <string_view>

namespace live {

// Whether nothing in the URL looks like a secret. It must be http or https, have at most 4096 bytes, and
// contain no user name or password. No parameter of its query, of its path (";name=value") or of a URL in the
// value of a parameter may have
//  - a value together with a name like token, session, password, signature or credential;
//  - a value with a part that looks random: 16 or more letters and digits that alternate often, or 16 or more
//  digits in a
//    row, or 40 or more letters in a row. Hyphens and underscores are ignored.
// A signed token ("eyJ", two dots) must not occur anywhere. Otherwise paths may contain anything, because
// most random names in them are names of files.
bool MayStoreUrl(std::string_view url);

// Whether request headers (header lines as text) may be stored and contain everything that a later request
// needs: each of them is on a list of headers that describe what the browser accepts and who asks, and URLs
// in them may be stored. The list contains no cookies, no credentials, and no headers that only the page's
// own scripts understand.
bool MayStoreHeaders(std::string_view headers);

// Whether the name of a parameter or a header suggests that its value is a secret, by the first of the rules
// above.
bool SaysSecret(std::string_view name);

}  // namespace live

#endif  // LIVE_STATE_PRIVACY_RULES_H_
