// The ways to load a page that are compared. `hints` is what the server says ahead; `proxy` are the options of
// kiv_proxy, when the browser goes through it.
export const WAYS = {
  'alone': {title: 'browser alone', hints: 'none'},
  'rel-preload': {title: 'link rel=preload', hints: 'preload'},
  'early-hints': {title: '103 Early Hints', hints: 'early-hints'},
  'proxy': {title: 'proxy without preloading', hints: 'none', proxy: ['--preload', 'off', '--preconnect', 'off']},
  'preconnect': {title: 'proxy, connections only', hints: 'none', proxy: ['--preload', 'off', '--preconnect', 'on']},
  'plugin': {title: 'proxy with everything', hints: 'none', proxy: ['--preload', 'on', '--preconnect', 'on']},
};

// Whether the server has a part in it.
export const isHinted = (way) => WAYS[way].hints !== 'none';

// What the machine knows of a page before it is loaded.
export const CACHES = {
  stale: 'visited before; everything that the caches hold is stale',
  cold: 'visited before; all caches were emptied since',
  first: 'never visited',
};

export const METRICS = {
  first_paint_ms: 'first paint',
  lcp_ms: 'LCP',
  dom_content_loaded_ms: 'DOMContentLoaded',
  load_ms: 'load',
  last_response_ms: 'last response',
  server_requests: 'requests',
  server_bytes: 'bytes',
};
