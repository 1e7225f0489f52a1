// The cookies of the simulated browser. Recorders often leave out their values, so only whether a request
// carries cookies is known. One thread.
#ifndef REPLAY_MODEL_COOKIE_PRESENCE_H_
#define REPLAY_MODEL_COOKIE_PRESENCE_H_

#include <functional>
#include <set>
#include <string>

#include "net/url_request/url_request_context.h"
#include "replay/recording/recording.h"

namespace replay {

class CookiePresence final : public net::URLRequestContext {
 public:
  // The recorded GET of a URL in the current visit; null if none was recorded.
  using FindRequest = std::function<const Request*(const std::string& url)>;
  explicit CookiePresence(FindRequest find) : find_(std::move(find)) {}

  // Returns the request's header lines, with a placeholder for the value of its cookies. A request that
  // carries cookies shows that its server has set some.
  std::string SentWith(const Request& request);
  // A response that sets cookies shows the same.
  void ResponseSeen(const Request& request);

  // The browser sends cookies with a URL if its recorded request has some and its server is known to have set
  // some before.
  std::string CookiesFor(const std::string& url) override;

 private:
  const FindRequest find_;
  std::set<std::string> servers_;  // by host name; with a leading dot for all names that end in this way
};

}  // namespace replay

#endif  // REPLAY_MODEL_COOKIE_PRESENCE_H_
