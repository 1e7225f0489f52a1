// Page loads as a HAR file, with what a replay needs: who asked for what and when, headers, sizes and timings.

const headerList = (headers = {}) => Object.entries(headers)
  .filter(([name]) => !name.startsWith(':'))
  .flatMap(([name, value]) => String(value).split('\n').map((line) => ({name, value: line})));

const PROTOCOLS = {'h2': 'HTTP/2', 'h3': 'HTTP/3', 'http/1.0': 'HTTP/1.0'};

// In milliseconds; -1 where there was none.
function timings({start_ms: startMs, end_ms: endMs, detail: {response, requestTimeMs}}) {
  const timing = response.timing;
  if (!timing) return {blocked: -1, dns: -1, connect: -1, ssl: -1, send: 0, wait: endMs - startMs, receive: 0};
  const span = (begin, end) => (timing[begin] < 0 ? -1 : timing[end] - timing[begin]);
  const firstStep = [timing.dnsStart, timing.connectStart, timing.sendStart].find((ms) => ms >= 0);
  return {
    blocked: requestTimeMs - startMs + firstStep,
    dns: span('dnsStart', 'dnsEnd'),
    connect: span('connectStart', 'connectEnd'),
    ssl: span('sslStart', 'sslEnd'),
    send: span('sendStart', 'sendEnd'),
    wait: timing.receiveHeadersEnd - timing.sendEnd,
    receive: Math.max(endMs - requestTimeMs - timing.receiveHeadersEnd, 0),
  };
}

function entry(request, pageref) {
  const {detail: {request: asked, response, initiator, headersSent, wallTime, encodedBytes}} = request;
  const headers = headerList(response.headers);
  const initiatorUrl = initiator?.url ?? initiator?.stack?.callFrames.find(({url}) => url)?.url;
  return {
    pageref,
    startedDateTime: new Date(wallTime * 1000).toISOString(),
    time: request.end_ms - request.start_ms,
    request: {
      method: asked.method, url: request.url, httpVersion: PROTOCOLS[response.protocol] ?? 'HTTP/1.1', cookies: [],
      headers: headerList(headersSent ?? asked.headers), queryString: [], headersSize: -1, bodySize: asked.postData?.length ?? 0,
    },
    response: {
      status: response.status, statusText: response.statusText, httpVersion: PROTOCOLS[response.protocol] ?? 'HTTP/1.1', cookies: [], headers,
      content: {size: -1, mimeType: response.mimeType}, redirectURL: response.headers.location ?? response.headers.Location ?? '',
      headersSize: -1, bodySize: -1, _transferSize: encodedBytes ?? response.encodedDataLength,
    },
    cache: {},
    timings: timings(request),
    _resourceType: request.kind.toLowerCase(),
    ...(initiator && {_initiator_type: initiator.type}),
    ...(initiatorUrl && {_initiator: initiatorUrl}),
  };
}

// `loads` are those of page_load.mjs, each with its `page`. What came out of the browser's cache, or failed, has no
// entry.
export function harOf(loads) {
  const pages = loads.map((load, index) => ({
    startedDateTime: new Date(load.requests[0].detail.wallTime * 1000).toISOString(),
    id: `page_${index + 1}`,
    title: load.page,
    pageTimings: {onContentLoad: load.dom_content_loaded_ms, onLoad: load.load_ms, _firstPaint: load.first_paint_ms},
  }));
  const entries = loads.flatMap((load, index) => load.requests
    .filter(({end_ms: end, fromCache, failed, detail}) => end !== null && !fromCache && !failed && detail.response)
    .map((request) => entry(request, `page_${index + 1}`)));
  entries.sort((a, b) => a.startedDateTime.localeCompare(b.startedDateTime));
  return {log: {version: '1.2', creator: {name: 'live/measure', version: '1'}, pages, entries}};
}
