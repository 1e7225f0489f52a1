// Whether a client can decode the body of a response: Accept-Encoding. Any thread.
#ifndef HOST_HTTP_CONTENT_CODING_H_
#define HOST_HTTP_CONTENT_CODING_H_

#include <string_view>

namespace http {

// Whether the request accepts every coding in the response's Content-Encoding, or an uncoded body if there is
// none. Without Accept-Encoding everything is accepted; with an empty one, only an uncoded body. A quality
// that cannot be parsed counts as 0. The first mention of a coding counts.
bool AcceptsCodingOf(std::string_view requestHeaders, std::string_view responseBlock);

}  // namespace http

#endif  // HOST_HTTP_CONTENT_CODING_H_
