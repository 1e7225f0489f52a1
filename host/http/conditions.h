// Conditional requests: whether a stored response answers one with "not modified", and the answer. Any
// thread.
#ifndef HOST_HTTP_CONDITIONS_H_
#define HOST_HTTP_CONDITIONS_H_

#include <string>
#include <string_view>

namespace http {

// Whether the request wants a response only if the client does not have it: If-None-Match or
// If-Modified-Since. Other preconditions and ranges do not count.
bool IsConditional(std::string_view requestHeaders);

// Whether the client has what the response holds, so that a 304 answers its GET. The response has to be one
// that the server would give without the condition (a 200). If-None-Match decides alone when it is there
// ("*": any response will do); else If-Modified-Since is compared with Last-Modified. False for a request
// without a condition, and for a date that is missing or does not parse: the whole response is always a right
// answer.
bool IsNotModified(std::string_view requestHeaders, std::string_view responseBlock);

// The raw block of the 304 that stands for this response: the same headers except those that describe the
// body, which does not come with it. All others are kept, Set-Cookie and the ones of access control among
// them, because to the client this is the only answer that there is. The version of HTTP in the status line
// is 1.1.
std::string NotModifiedBlock(std::string_view responseBlock);

}  // namespace http

#endif  // HOST_HTTP_CONDITIONS_H_
