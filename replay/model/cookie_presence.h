// The cookies of the simulated browser. Recorders often leave out their values, so only whether a request
// carries cookies can be told. One thread.
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
  // What a GET of a URL is recorded as on the visit under way; null when it is not.
  using FindRequest = std::function<const Request*(const std::string& url)>;
  explicit CookiePresence(FindRequest find) : find_(std::move(find)) {}

  // The request's header lines, with a placeholder for the value of its cookies. A request that carries
  // cookies shows that there are some for its server.
  std::string SentWith(const Request& request);
  // So does a response that sets some.
  void ResponseSeen(const Request& request);

  // The browser sends cookies with a URL when its recorded request has some, and their server is known to
  // have set some by now.
  std::string CookiesFor(const std::string& url) override;

 private:
  const FindRequest find_;
  std::set<std::string> servers_;  // by host name; a leading dot stands for all names that end so
};

}  // namespace replay

#endif  // REPLAY_MODEL_COOKIE_PRESENCE_H_
