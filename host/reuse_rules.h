// Decides which request may be answered by which preload. A held response replaces the response of the
// network, so it must be the same response. Pure functions of request and response headers and of plain
// records. Any thread.
#ifndef HOST_REUSE_RULES_H_
#define HOST_REUSE_RULES_H_

#include <string>
#include <string_view>

#include "host/not_served.h"

namespace host {

// A request that is to be sent, or was sent.
struct RequestFacts {
  std::string_view method;
  std::string_view headers;  // header lines as text, Cookie among them
  bool hasBody = false;
  bool withCredentials = true;  // cookies and the like may be sent and stored
};

// Why no preload may answer the request, or None if one may.
NotServed WhyNotReusable(const RequestFacts& request);

// Why a preload's response (a raw block) does not answer the request, or None if it does. `sent` is the
// request of the preload. Not to be called for a request that WhyNotReusable refuses.
NotServed WhyNotAnswer(const RequestFacts& request, const RequestFacts& sent, std::string_view responseBlock);

// The part of WhyNotAnswer that can be decided before there is a response.
NotServed WhyNotSameSender(const RequestFacts& request, const RequestFacts& sent);

// Whether a request with this method may have changed the resource of its URL.
bool IsUnsafe(std::string_view method);

// What of a request's headers a later preload of its URL should carry as well, as header lines: those that
// tell the server what to send and who asks, without what belongs to one request, one connection or one user.
std::string HeadersToRepeat(std::string_view requestHeaders);

// What a preload is sent with: the plugin's own headers, and of the ones to repeat those that the plugin does
// not set, or sets to any type of answer where the page's requests are more exact. `cookies` may be empty.
std::string HeadersToSend(std::string_view pluginHeaders, std::string_view headersToRepeat,
                          std::string_view cookies);

}  // namespace host

#endif  // HOST_REUSE_RULES_H_
