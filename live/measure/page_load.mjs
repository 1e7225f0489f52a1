// One load of a page in a browser, and what a person would have seen of it.
import {setTimeout as pause} from 'node:timers/promises';

const QUIET_MS = 600; // without a request under way after the load event: then the load is over
const LONGEST_MS = 60_000;

// Runs in the page, when all is over. Times are milliseconds from the start of the navigation.
const READ_TIMES = `new Promise((resolve) => {
  let lcp = null;
  new PerformanceObserver((list) => {
    for (const entry of list.getEntries()) lcp = entry.startTime;
  }).observe({type: 'largest-contentful-paint', buffered: true});
  setTimeout(() => {
    const [navigation] = performance.getEntriesByType('navigation');
    const paint = performance.getEntriesByName('first-paint')[0];
    resolve({
      first_paint_ms: paint?.startTime ?? null,
      lcp_ms: lcp,
      dom_content_loaded_ms: navigation.domContentLoadedEventEnd,
      load_ms: navigation.loadEventEnd,
    });
  }, 60);
})`;

// Loads it. Returns {first_paint_ms, lcp_ms, dom_content_loaded_ms, load_ms, last_response_ms, requests, frames}:
// `requests` are [{url, kind, start_ms, end_ms, status, fromCache, failed, note, detail}], `note` being what a proxy
// says of the response and `detail` what the protocol says of all; `frames` are [{at_ms, jpeg}] when `filmstrip` is set. Throws when the page does not load.
export async function loadPage(browser, url, {filmstrip = false} = {}) {
  const session = await browser.openPage();
  const send = (method, params) => browser.send(method, params, session);
  const requests = new Map();
  const frames = [];
  let loaded = false;
  let navigationStart; // on the clock of the protocol's events
  let lastChange = Date.now();
  const onEvent = ({method, params, sessionId}) => {
    if (sessionId !== session) return;
    if (method === 'Page.loadEventFired') loaded = true;
    if (method === 'Page.screencastFrame') {
      send('Page.screencastFrameAck', {sessionId: params.sessionId}).catch(() => {});
      frames.push({timestamp: params.metadata.timestamp, jpeg: params.data});
    }
    if (!method.startsWith('Network.')) return;
    lastChange = Date.now();
    const request = requests.get(params.requestId);
    if (method === 'Network.requestWillBeSent') {
      if (params.request.url.startsWith('data:') || params.request.url.startsWith('blob:')) return;
      navigationStart ??= {monotonic: params.timestamp, wall: params.wallTime};
      // A redirect goes on under the same id; it is a request of its own.
      if (params.redirectResponse && request) {
        requests.set(`${params.requestId} ${requests.size}`, {...request, end: params.timestamp, status: params.redirectResponse.status, detail: {...request.detail, response: params.redirectResponse}});
      }
      const detail = {request: params.request, initiator: params.initiator, wallTime: params.wallTime};
      requests.set(params.requestId, {url: params.request.url, kind: params.type, start: params.timestamp, detail});
    } else if (request === undefined) {
      return;
    } else if (method === 'Network.requestServedFromCache') {
      request.fromCache = true;
    } else if (method === 'Network.responseReceived') {
      request.status = params.response.status;
      request.detail.response = params.response;
      request.fromCache ||= params.response.fromDiskCache;
      const timing = Object.entries(params.response.headers).find(([name]) => name.toLowerCase() === 'server-timing');
      request.note = /preload;desc="([^"]*)"/.exec(timing?.[1] ?? '')?.[1];
    } else if (method === 'Network.requestWillBeSentExtraInfo') {
      request.detail.headersSent = params.headers;
    } else if (method === 'Network.loadingFinished') {
      request.end = params.timestamp;
      request.detail.encodedBytes = params.encodedDataLength;
    } else if (method === 'Network.loadingFailed') {
      request.failed = true;
    }
  };
  const stop = browser.listen(onEvent);
  try {
    await send('Network.enable');
    await send('Page.enable');
    if (filmstrip) await send('Page.startScreencast', {format: 'jpeg', quality: 40, maxWidth: 320, maxHeight: 225});
    const {errorText} = await send('Page.navigate', {url});
    if (errorText) throw new Error(`${url} does not load: ${errorText}`);
    const deadline = Date.now() + LONGEST_MS;
    const isUnderWay = () => [...requests.values()].some(({end, failed}) => end === undefined && !failed);
    while (!loaded || isUnderWay() || Date.now() - lastChange < QUIET_MS) {
      if (Date.now() > deadline) throw new Error(`${url} is still loading after ${LONGEST_MS / 1000} s`);
      await pause(25);
    }
    const {result} = await send('Runtime.evaluate', {expression: READ_TIMES, awaitPromise: true, returnByValue: true});
    const since = (timestamp) => (timestamp - navigationStart.monotonic) * 1000;
    const list = [...requests.values()].sort((a, b) => a.start - b.start).map(({start, end, detail, ...request}) => ({
      ...request,
      start_ms: since(start),
      end_ms: end === undefined ? null : since(end),
      detail: {...detail, requestTimeMs: detail.response?.timing && since(detail.response.timing.requestTime)},
    }));
    return {
      ...result.value,
      last_response_ms: Math.max(...list.map(({end_ms}) => end_ms ?? 0)),
      requests: list,
      frames: frames.map(({timestamp, jpeg}) => ({at_ms: (timestamp - navigationStart.wall) * 1000, jpeg})),
    };
  } finally {
    stop();
  }
}
