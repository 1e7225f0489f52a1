// The waterfall of one visit: a line per request, with its bars without the plugin and with it.

// The last part of the path, and the server where it is not the page's.
const nameOf = (url, page) => {
  try {
    const parsed = new URL(url);
    const parts = parsed.pathname.split("/").filter(Boolean);
    const file = (parts.length ? parts[parts.length - 1] : "/") + parsed.search;
    return [file, parsed.host === new URL(page).host ? "" : parsed.host];
  } catch {
    return [url, ""];
  }
};

// --- The bars of a line. `percent` is the place of a moment on a lane.

const addLane = (row, column, text) => {
  const bar = addElement(addElement(row, "td", "way " + column), "span", "w");
  if (text) {
    bar.setAttribute("role", "img");
    bar.setAttribute("aria-label", text);
  }
  return addElement(bar, "span", "lane");
};

const addSegment = (lane, percent, className, from, to) => {
  if (to <= from) return;
  const { style } = addElement(lane, "i", className);
  style.left = percent(from);
  style.width = percent(to - from);
};

const addMark = (lane, percent, className, at) => { addElement(lane, "i", "m " + className).style.left = percent(at); };

const addRequestBar = (lane, percent, { wanted, connect, sent, first, end }) => {
  addSegment(lane, percent, "q", wanted, connect);
  addSegment(lane, percent, "c", connect, sent);
  addSegment(lane, percent, "f", sent, first);
  addSegment(lane, percent, "r", first, end);
};

const addPreloadBar = (lane, percent, { ordered, launched, connect, sent, first, end, used }) => {
  const unused = used ? "" : " unused";
  addSegment(lane, percent, "pq" + unused, ordered, Math.max(launched, connect));
  addSegment(lane, percent, "pc" + unused, connect, sent);
  addSegment(lane, percent, "pf" + unused, sent, first);
  addSegment(lane, percent, "pr" + unused, first, end);
};

const describeAnswer = ({ source, wanted, connect, sent, first, end }) => {
  const parts = ["asked at " + millisecondsText(wanted)];
  if (sent > connect) parts.push("connecting from " + millisecondsText(connect));
  if (source === "network") parts.push("sent at " + millisecondsText(sent), "first byte at " + millisecondsText(first));
  parts.push("done at " + millisecondsText(end));
  return `${source}: ${parts.join(", ")}`;
};

const addOffBars = (row, percent, { answers }) => {
  const off = answers.get("off");
  const lane = addLane(row, "off", off && "Without the plugin: " + describeAnswer(off));
  if (!off) return;
  if (off.source === "disk cache") addMark(lane, percent, "cache", off.wanted);
  else addRequestBar(lane, percent, off);
};

const addPluginBars = (row, percent, { answers, why, preload }) => {
  const plugin = answers.get("plugin");
  const parts = [];
  if (plugin) parts.push(describeAnswer(plugin) + (why ? ` (${why})` : ""));
  if (preload) {
    const { launched, end, size, fate } = preload;
    const times = `launched at ${millisecondsText(launched)}, done at ${millisecondsText(end)}`;
    parts.push(`preload ${times}, ${bytesText(size)}, ${fate}`);
  }
  const lane = addLane(row, "plugin", parts.length ? "With the plugin: " + parts.join("; ") : "");
  if (preload) addPreloadBar(lane, percent, preload);
  if (!plugin) return;
  const { source, wanted } = plugin;
  if (source === "network") {
    addRequestBar(lane, percent, plugin);
    return;
  }
  if (source === "served" && preload) addSegment(lane, percent, "held", preload.end, wanted);
  addMark(lane, percent, source === "disk cache" ? "cache" : source, wanted);
};

// --- The lines

// The legend explains the flag to those who see it.
const addEndTag = (cell, ways) => {
  const tag = addElement(cell, "span", "tag ended", "⚑ ");
  addElement(tag, "span", "hidden", "ended the load: ");
  tag.append(ways);
};

const addOutcome = (row, visit, { request, why, preload, answers }) => {
  const plugin = answers.get("plugin");
  const asked = plugin ? (plugin.source === "joined" ? "joined" : why || plugin.source) : "";
  const state = plugin && ["served", "joined"].includes(plugin.source) ? plugin.source : preload && !preload.used ? "unused" : "";
  const sign = { served: "✓ ", joined: "◇ ", unused: "✕ " }[state] ?? "";
  const text = asked || (preload ? `${preload.fate}, ${bytesText(preload.size)}` : "not asked for");
  const cell = addElement(row, "td", "outcome " + state, sign + text);
  const ended = ["off", "plugin"].filter((way) => request && visit.ways.get(way).last === request.number);
  if (ended.length) addEndTag(cell, ended.length === 2 ? "both" : ended[0]);
  if (request?.beacon) addElement(cell, "span", "tag", "beacon");
};

const addLine = (body, percent, visit, line, number) => {
  const { request, preload, answers } = line;
  const ended = request && [...visit.ways.values()].some(({ last }) => last === request.number);
  const isCached = answers.get("plugin")?.source === "disk cache" && !preload && !ended;
  const row = addElement(body, "tr", isCached ? "cached" : "");
  addElement(row, "td", "number", number);
  const { url, kind } = request ?? preload;
  const [file, server] = nameOf(url, visit.page);
  const name = addHeading(row, "row", "", "name");
  addButton(name, "", file, () => showDetails(row, visit, line)).setAttribute("aria-haspopup", "dialog");
  if (server) addElement(name, "span", "", server);
  addElement(row, "td", "kind", kind);
  addOffBars(row, percent, line);
  addPluginBars(row, percent, line);
  addOutcome(row, visit, line);
  return isCached;
};

// A line per way with its moments; the bar ends with the load event.
const addWay = (body, percent, visit, { name, paint, content, load, last }) => {
  const row = addElement(body, "tr");
  addElement(row, "td", "number");
  addHeading(row, "row", name, "name");
  addElement(row, "td", "kind");
  const moments = [["first paint", paint], ["DOMContentLoaded", content], ["load event", load]];
  const text = moments.map(([event, at]) => `${event} at ${millisecondsText(at)}`).join(", ");
  const addMoments = (column) => {
    const lane = addLane(row, column, `${name}: ${text}`);
    addSegment(lane, percent, "span", 0, load);
    for (const [className, at] of [["paint", paint], ["content", content], ["load", load]]) {
      addElement(lane, "i", className).style.left = percent(at);
    }
  };
  if (name === "off") addMoments("off"); else addLane(row, "off");
  if (name === "off") addLane(row, "plugin"); else addMoments("plugin");
  const request = visit.lines.find((line) => line.request?.number === last)?.request;
  addElement(row, "td", "outcome", request ? "⚑ " + nameOf(request.url, visit.page)[0] : "");
};

const spanOf = ({ ways, lines }) => {
  let last = 1000;
  for (const { paint, content, load } of ways.values()) last = Math.max(last, paint, content, load);
  for (const { answers, preload } of lines) {
    for (const way of ["off", "plugin"]) last = Math.max(last, answers.get(way)?.end ?? 0);
    last = Math.max(last, preload?.end ?? 0);
  }
  return last * 1.02;
};

// --- The head with the axes, and the controls above

const kColumns = [["number", "No."], ["name", "Resource"], ["kind", "Kind"], ["way off", "Without the plugin"],
  ["way plugin", "With the plugin"], ["outcome", "Outcome"]];

// Returns the axes.
const addHead = (table) => {
  const head = addElement(addElement(table, "thead"), "tr");
  const axes = [];
  for (const [className, text] of kColumns) {
    const cell = addHeading(head, "col", "", className);
    addElement(cell, "span", "column-name", text);
    if (!className.startsWith("way")) continue;
    axes.push(addElement(cell, "span", "axis"));
    axes[axes.length - 1].setAttribute("aria-hidden", "true");
  }
  return axes;
};

const addCachedToggle = (controls, table, count) => {
  const toggle = addButton(controls, "tool toggle", "", () => update(!table.classList.contains("collapsed")));
  const update = (hidden) => {
    table.classList.toggle("collapsed", hidden);
    toggle.setAttribute("aria-expanded", String(!hidden));
    toggle.textContent = `${hidden ? "Show" : "Hide"} ${count} from the disk cache`;
  };
  update(true);
};

const addTimeControls = (controls, view, shown) => {
  const group = addElement(controls, "span", "time");
  group.setAttribute("role", "group");
  group.setAttribute("aria-label", "Time shown");
  const tools = [["−", "Zoom out", () => view.zoomBy(1 / kZoomStep)], ["+", "Zoom in", () => view.zoomBy(kZoomStep)],
    ["‹", "Earlier", () => view.moveBy(-kMoveStep)], ["›", "Later", () => view.moveBy(kMoveStep)],
    ["Reset", "Show the whole time", () => view.reset()]];
  for (const [text, name, act] of tools) {
    const button = addButton(group, "tool", text, act);
    if (text !== "Reset") button.setAttribute("aria-label", name);
    button.title = name;
  }
  group.append(shown);
};

// Up and down go from line to line.
const addLineKeys = (table) => {
  table.addEventListener("keydown", (event) => {
    const direction = { ArrowDown: 1, ArrowUp: -1 }[event.key];
    const row = event.target.closest("tbody tr");
    if (!direction || !row) return;
    event.preventDefault();
    nextVisible(row, direction)?.querySelector("button")?.focus();
  });
};

const drawWaterfall = (place, visit) => {
  const span = spanOf(visit);
  const percent = (us) => (us / span * 100).toFixed(4) + "%";
  const controls = addElement(place, "div", "controls");
  const table = document.createElement("table");
  addElement(table, "caption", "hidden", "Requests of " + visit.page);
  const axes = addHead(table);
  // The moments of the two columns' ways are lines through all rows.
  for (const name of ["off", "plugin"]) {
    const { paint, content, load } = visit.ways.get(name);
    table.style.setProperty(`--${name}-paint`, percent(paint));
    table.style.setProperty(`--${name}-content`, percent(content));
    table.style.setProperty(`--${name}-load`, percent(load));
  }

  const ways = addElement(table, "tbody", "ways");
  for (const way of visit.ways.values()) addWay(ways, percent, visit, way);
  const body = addElement(table, "tbody", "lines");
  let cached = 0;
  visit.lines.forEach((line, index) => { if (addLine(body, percent, visit, line, index + 1)) ++cached; });
  // A finger hits a line more easily than its name.
  body.addEventListener("click", (event) => {
    if (!event.target.closest("button")) event.target.closest("tr")?.querySelector("button").click();
  });

  const shown = document.createElement("output");
  const view = createTimeView(table, axes, span, (text) => { shown.textContent = text; });
  addTimeControls(controls, view, shown);
  if (cached) addCachedToggle(controls, table, cached);
  addElement(controls, "span", "muted help",
    "Keys: + − 0 ← → for the time, ↑ ↓ for the lines. Ctrl and the wheel zoom, dragging moves.");
  addKeys(place, view);
  addWheel(table, view);
  addDragging(table, view);
  addLineKeys(table);
  place.append(table);
};
