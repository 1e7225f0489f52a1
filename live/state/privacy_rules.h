// What of a page may be written to disk. Pure functions over text. Any thread.
#ifndef LIVE_STATE_PRIVACY_RULES_H_
#define LIVE_STATE_PRIVACY_RULES_H_

#include <string_view>

namespace live {

// Whether nothing in the URL looks like a secret. It has to be http or https, of at most 4096 bytes, without
// a user name or password, and no parameter, neither of its query nor of its path (";name=value"), nor of a
// URL that such a value holds, may
//  - have a value, and a name that says token, session, password, signature, credential or the like;
//  - have a value with a part that looks random: 16 or more letters and digits that alternate often, or 16 or
//    more digits in a row, or 40 or more letters in a row. Hyphens and underscores count for nothing.
// A signed token ("eyJ", two dots) may stand nowhere. Otherwise paths are free: most of the random names in
// them are names of files.
bool MayStoreUrl(std::string_view url);

// Whether request headers (header lines as text) may be stored, and tell all that a later request needs: each
// of them is on a list of headers that say what the browser takes and who asks, and URLs in them may be
// stored. Cookies and credentials are not on the list, nor is what only the page's own scripts understand.
bool MayStoreHeaders(std::string_view headers);

// Whether the name of a parameter or a header says that its value is a secret, as the first of the rules
// above does.
bool SaysSecret(std::string_view name);

}  // namespace live

#endif  // LIVE_STATE_PRIVACY_RULES_H_
