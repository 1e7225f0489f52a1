// Dates in recordings and in HTTP headers, in milliseconds since 1970 UTC. Any thread.
#ifndef HOST_HTTP_DATES_H_
#define HOST_HTTP_DATES_H_

#include <optional>
#include <string>
#include <string_view>

namespace http {

// Parses dates like "2018-03-01T12:30:05.123+01:00". The fraction may have any number of digits. A date
// without a zone is in UTC. Returns nothing for other texts and for years before 1970.
std::optional<double> ParseIsoDate(std::string_view text);

// Parses a header's date in any of HTTP's three formats, or in a similar one that servers send by mistake
// ("Sun, 06-Nov-1994 08:49:37 GMT", no zone). The zone is assumed to be GMT. Returns nothing for other texts
// ("0", "-1", "never").
std::optional<double> ParseHttpDate(std::string_view text);

// The date in the first header with that name, if it is a date.
std::optional<double> FindDateHeader(std::string_view block, std::string_view name);

// Formats a date like "Sun, 06 Nov 1994 08:49:37 GMT", rounded down to a second. Times before 1970 and after
// 9999 become the nearest date in that range.
std::string FormatHttpDate(double ms);

}  // namespace http

#endif  // HOST_HTTP_DATES_H_
