// Conditional requests: whether the answer to one is "not modified" given a stored response, and that answer.
// Any thread.
#ifndef HOST_HTTP_CONDITIONS_H_
#define HOST_HTTP_CONDITIONS_H_

#include <string>
#include <string_view>

namespace http {

// Whether the request has If-None-Match or If-Modified-Since, so that it needs a response only if the client
// does not have it. Other preconditions and ranges do not count.
bool IsConditional(std::string_view requestHeaders);

// Whether the client already has this response, so that a 304 answers its GET. The response must be one that
// the server would give without the condition (a 200). If-None-Match alone decides if it is present ("*"
// matches any response); otherwise If-Modified-Since is compared with Last-Modified. Returns false for a
// request without a condition and for a date that is missing or cannot be parsed, because the whole response
// is always a correct answer.
bool IsNotModified(std::string_view requestHeaders, std::string_view responseBlock);

// Returns the raw block of the 304 that replaces this response: the same headers without those that describe
// the body. All others are kept, including Set-Cookie and those of access control, because the client gets no
// other answer. The version of HTTP in the status line is 1.1.
std::string NotModifiedBlock(std::string_view responseBlock);

}  // namespace http

#endif  // HOST_HTTP_CONDITIONS_H_
