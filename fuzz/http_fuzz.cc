// Any bytes as header blocks of a request and of a response: what the functions say of them agrees with what
// they say of each other.
#include <cmath>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "host/http/conditions.h"
#include "host/http/content_coding.h"
#include "host/http/dates.h"
#include "host/http/freshness.h"
#include "host/http/header_block.h"
#include "host/http/lists.h"
#include "host/http/vary.h"
#include "net/http/http_response_headers.h"

namespace {

void CheckBlock(const std::string& block) {
  http::ForEachHeader(block, [&](std::string_view name, std::string_view value) {
    FUZZ_CHECK(!name.empty() && name == net::TrimBlanks(name) && value == net::TrimBlanks(value));
    FUZZ_CHECK(http::HasHeader(block, name));
    const std::string combined = http::CombinedHeader(block, name).value();
    FUZZ_CHECK(combined.starts_with(http::FindHeader(block, name).value()));
    FUZZ_CHECK(combined.find(value) != std::string::npos);
    if (const auto ms = http::ParseHttpDate(value))
      FUZZ_CHECK(http::ParseHttpDate(http::FormatHttpDate(*ms)) == ms);
  });
}

void CheckResponse(const std::string& request, const std::string& response, int status) {
  const bool mayStore = http::MayStore(status, "", response);
  const auto freshForMs = http::FreshForMs("GET", status, response, 784111777e3);
  FUZZ_CHECK(freshForMs.has_value() == mayStore);
  FUZZ_CHECK(!freshForMs || (std::isfinite(*freshForMs) && *freshForMs >= 0));
  FUZZ_CHECK(http::InitialAgeMs(response, 784111776e3, 784111777e3) >= 1e3);

  const bool variesByAll = http::ListHas(http::CombinedHeader(response, "Vary").value_or(""), "*");
  FUZZ_CHECK(http::VaryAllows(response, request, request) == !variesByAll);
  FUZZ_CHECK(http::VaryAllows(response, request, "") == http::VaryAllows(response, "", request));
  FUZZ_CHECK(http::AcceptsCodingOf("Accept-Encoding: *\r\n", response));

  const std::string_view tag = http::FindHeader(response, "ETag").value_or("");
  if (http::ParseEntityTag(tag) && tag.find("\r\n") == std::string_view::npos) {
    FUZZ_CHECK(http::IsNotModified("If-None-Match: \"x,y\", " + std::string(tag) + "\r\n", response));
  }
  FUZZ_CHECK(http::IsConditional(request) || !http::IsNotModified(request, response));
  const std::string notModified = http::NotModifiedBlock(response);
  FUZZ_CHECK(net::HttpResponseHeaders(notModified).response_code() == 304);
  FUZZ_CHECK(!http::HasHeader(notModified, "Content-Length"));
  FUZZ_CHECK(http::NotModifiedBlock(notModified) == notModified);
  FUZZ_CHECK(http::IsNotModified(request, notModified) == http::IsNotModified(request, response));
}

}  // namespace

// The status, then the request up to the first NUL byte, then the response.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(data + 1, data + size);
  const std::string request = text.substr(0, text.find('\0'));
  const std::string response = "HTTP/1.1 200" + text.substr(request.size()) + '\0';
  CheckBlock(request);
  CheckBlock(response);
  CheckResponse(request, response, 200 + 2 * (data[0] % 152));
  return 0;
}
