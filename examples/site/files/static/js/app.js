// On every page: tide line in the masthead, then the page's own late scripts, then the visit count.
const API = 'http://api.example.test:8081/v1';
const METRICS = 'http://metrics.example.test:8082';

function loadScript(name) {
  const script = document.createElement('script');
  script.src = `http://static.example.test/js/${name}`;
  document.head.append(script);
}

function addPicture(parent, src, alt) {
  const picture = new Image();
  picture.alt = alt;
  picture.src = src;
  parent.append(picture);
  return picture;
}

async function getJson(path) {
  const answer = await fetch(`${API}/${path}`);
  return answer.json();
}

// Asked for twice in a page on purpose, by the masthead and by the footer, as two widgets
// that know nothing of each other would.
async function showTide(selector) {
  const tide = await getJson('tide.json');
  document.querySelector(selector).textContent = `High water ${tide.high}, low ${tide.low}`;
}

function countVisit() {
  const hit = new Image();
  hit.src = `${METRICS}/hit.gif?page=${encodeURIComponent(location.pathname)}&cb=${Date.now()}`;
  navigator.sendBeacon(`${METRICS}/timing`, `load=${Math.round(performance.now())}`);
}

showTide('.masthead .tide').then(() => showTide('footer .tide'));
for (const name of (document.body.dataset.late ?? '').split(' ').filter(Boolean)) loadScript(name);
addEventListener('load', countVisit);
