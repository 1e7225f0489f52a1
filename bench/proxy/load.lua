-- For wrk: asks for the same hundred URLs in turn, in the form that a proxy wants or directly, and prints what came of it
-- as a line of JSON. Arguments: what precedes each path, the path, the page that the requests say they are of.
local requests, count = {}, 0

function init(arguments)
  local base, path, page = arguments[1], arguments[2], arguments[3]
  wrk.headers["User-Agent"] = "Mozilla/5.0 (X11; Linux x86_64) as long as those of browsers are, which is about a hundred characters"
  wrk.headers["Accept"] = "image/avif,image/webp,image/apng,image/*,*/*;q=0.8"
  wrk.headers["Accept-Encoding"] = "gzip, deflate"
  wrk.headers["Accept-Language"] = "en-US,en;q=0.9"
  wrk.headers["Referer"] = page
  wrk.headers["Host"] = page:match("//([^/]+)")
  if base == "-" then base = "" end
  for number = 1, 100 do requests[number] = wrk.format("GET", base .. path .. "?" .. number) end
end

function request()
  count = count % 100 + 1
  return requests[count]
end

function done(summary, latency)
  local errors = summary.errors
  io.write(string.format('\nRESULT {"requests":%d,"bytes":%d,"us":%d,"p50_us":%d,"p99_us":%d,"errors":%d}\n', summary.requests,
    summary.bytes, summary.duration, latency:percentile(50), latency:percentile(99),
    errors.connect + errors.read + errors.write + errors.status + errors.timeout))
end
