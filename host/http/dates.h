// Dates in recordings and in HTTP headers, in milliseconds since 1970 UTC. Any thread.
#ifndef HOST_HTTP_DATES_H_
#define HOST_HTTP_DATES_H_

#include <optional>
#include <string>
#include <string_view>

namespace http {

// "2018-03-01T12:30:05.123+01:00". The fraction has any number of digits; without a zone it is UTC. Nothing
// for anything else, and for years before 1970.
std::optional<double> ParseIsoDate(std::string_view text);

// A header's date in any of HTTP's three forms, and in those that servers mistake for them ("Sun, 06-Nov-1994
// 08:49:37 GMT", no zone). GMT is assumed. Nothing for anything else ("0", "-1", "never").
std::optional<double> ParseHttpDate(std::string_view text);

// The date in the first header with that name, if it is a date.
std::optional<double> FindDateHeader(std::string_view block, std::string_view name);

// "Sun, 06 Nov 1994 08:49:37 GMT": the second that the time is in. Times before 1970 and after 9999 become
// the nearest that can be written.
std::string FormatHttpDate(double ms);

}  // namespace http

#endif  // HOST_HTTP_DATES_H_
