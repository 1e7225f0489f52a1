#include "net/http/http_request_info.h"

namespace net {

HttpRequestInfo::HttpRequestInfo() = default;
HttpRequestInfo::~HttpRequestInfo() = default;

}  // namespace net
