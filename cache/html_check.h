// Which responses the plugin refuses to serve because they are HTML. Any thread.
#ifndef CACHE_HTML_CHECK_H_
#define CACHE_HTML_CHECK_H_

#include <string>

namespace kiv {

// Whether a raw header block mentions HTML, in any header. The search continues past the NUL bytes between
// headers and is case-sensitive.
inline bool MentionsHtml(const std::string& rawHeaders) {
  return rawHeaders.find("text/html") != std::string::npos;
}

}  // namespace kiv

#endif  // CACHE_HTML_CHECK_H_
