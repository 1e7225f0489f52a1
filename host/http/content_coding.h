// Whether a client can decode the body of a response: Accept-Encoding. Any thread.
#ifndef HOST_HTTP_CONTENT_CODING_H_
#define HOST_HTTP_CONTENT_CODING_H_

#include <string_view>

namespace http {

// Whether the request accepts every coding in the response's Content-Encoding, or an uncoded body if there is
// no Content-Encoding. A request without Accept-Encoding accepts everything, and one with an empty
// Accept-Encoding only an uncoded body. A quality that cannot be parsed counts as 0. If a coding is repeated,
// the first one counts.
bool AcceptsCodingOf(std::string_view requestHeaders, std::string_view responseBlock);

}  // namespace http

#endif  // HOST_HTTP_CONTENT_CODING_H_
