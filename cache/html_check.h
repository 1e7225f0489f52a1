// Which responses the plugin refuses to serve for being HTML. Any thread.
#ifndef CACHE_HTML_CHECK_H_
#define CACHE_HTML_CHECK_H_

#include <string>

namespace kiv {

// Whether a raw header block mentions HTML: in whatever header it stands, past the NUL bytes between them,
// and in this spelling only.
inline bool MentionsHtml(const std::string& rawHeaders) {
  return rawHeaders.find("text/html") != std::string::npos;
}

}  // namespace kiv

#endif  // CACHE_HTML_CHECK_H_
