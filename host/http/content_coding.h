// Whether a client can read the way in which a response's body is coded: Accept-Encoding. Any thread.
#ifndef HOST_HTTP_CONTENT_CODING_H_
#define HOST_HTTP_CONTENT_CODING_H_

#include <string_view>

namespace http {

// Whether the request accepts every coding that the response's Content-Encoding names, or an uncoded body
// when it names none. Without Accept-Encoding anything will do; with an empty one only an uncoded body. A
// quality that does not parse counts as 0, and the first mention of a coding counts.
bool AcceptsCodingOf(std::string_view requestHeaders, std::string_view responseBlock);

}  // namespace http

#endif  // HOST_HTTP_CONTENT_CODING_H_
