// The panel with everything that is known of one request. It shows the same by mouse, touch and keyboard, and gives the
// focus back when it closes.

const closeDetails = () => {
  const { panel, row } = detailsPanel;
  if (panel.hidden) return;
  panel.hidden = true;
  row.classList.remove("chosen");
  row.querySelector("button").focus();
};

const detailsPanel = (() => {
  const panel = addElement(document.body, "div", "panel");
  panel.hidden = true;
  panel.tabIndex = -1;
  panel.setAttribute("role", "dialog");
  panel.setAttribute("aria-labelledby", "panel-title");
  document.addEventListener("keydown", (event) => { if (event.key === "Escape") closeDetails(); });
  return { panel, row: null };  // the row whose request is shown
})();

const addFacts = (panel, facts) => {
  const list = addElement(panel, "dl");
  for (const [name, value] of facts) {
    if (value === "") continue;
    addElement(list, "dt", "", name);
    addElement(list, "dd", "", value);
  }
};

const addTimings = (panel, answers) => {
  if (answers.size === 0) return;  // a preload that no page asked for
  const scroll = addElement(panel, "div", "scroll");
  scroll.tabIndex = 0;
  scroll.setAttribute("role", "region");
  scroll.setAttribute("aria-label", "Times in all ways");
  const table = addElement(scroll, "table", "figures");
  addElement(table, "caption", "", "In all ways, from the page's request on");
  const head = addElement(addElement(table, "thead"), "tr");
  for (const name of ["way", "from", "asked", "connecting", "sent", "first byte", "done"]) addHeading(head, "col", name);
  const body = addElement(table, "tbody");
  for (const [way, { source, wanted, connect, sent, first, end }] of answers) {
    const row = addElement(body, "tr");
    addHeading(row, "row", way);
    addElement(row, "td", "left", source);
    const connecting = connect < sent ? connect : null;
    const times = source === "network" ? [wanted, connecting, sent, first, end] : [wanted, null, null, null, end];
    for (const time of times) addElement(row, "td", "", time === null ? "–" : millisecondsText(time));
  }
};

const addLog = (panel, log, url) => {
  addElement(panel, "h4", "", "The plugin's log");
  if (log === null) {
    addElement(panel, "p", "muted", "It was not kept. kiv_replay with --log 4 shows here what it says of this address.");
    return;
  }
  const lines = log.filter((line) => line.url === url);
  if (lines.length === 0) {
    addElement(panel, "p", "muted", "It says nothing of this address.");
    return;
  }
  const list = addElement(panel, "ol", "log");
  for (const { at, text } of lines) addElement(list, "li", "", millisecondsText(at) + "  " + text);
};

// Shows a line of a visit's waterfall, which is drawn in `row`.
const showDetails = (row, visit, { request, why, preload, answers }) => {
  const { panel } = detailsPanel;
  detailsPanel.row?.classList.remove("chosen");
  detailsPanel.row = row;
  row.classList.add("chosen");
  panel.replaceChildren();

  const buttons = addElement(panel, "div", "panel-buttons");
  for (const [text, direction] of [["Previous", -1], ["Next", 1]]) {
    addButton(buttons, "tool", text, () => nextVisible(row, direction)?.querySelector("button").click());
  }
  addButton(buttons, "tool", "Close", closeDetails);

  const { url, kind } = request ?? preload;
  addElement(panel, "h3", "", url).id = "panel-title";
  const facts = [];
  if (request) {
    const { method, protocol, status, size, initiator, beacon, number } = request;
    const ended = [...visit.ways.values()].filter(({ last }) => last === number).map(({ name }) => name);
    facts.push(
      ["Request", `${method}, ${protocol}`], ["Status", status], ["Size", bytesText(size)], ["Kind", kind || "unknown"],
      ["Asked for by", initiator || "unknown"], ["Beacon", beacon ? "yes: nothing of the page needs its response" : ""],
      ["Ended the load of", ended.join(", ")], ["With the plugin", answers.get("plugin")?.source ?? "not asked for"],
      ["Why not served", why]);
  } else {
    facts.push(["Kind", kind || "unknown"], ["Asked for by", "nobody in this visit"]);
  }
  if (preload) {
    const { fate, size, ordered, launched, sent, first, end } = preload;
    const moments = [["ordered", ordered], ["launched", launched], ["sent", sent], ["first byte", first], ["done", end]];
    const text = moments.map(([name, at]) => `${name} at ${millisecondsText(at)}`).join(", ");
    facts.push(["Preload", `${fate}, ${bytesText(size)}; ${text}`]);
  }
  addFacts(panel, facts);
  addTimings(panel, answers);
  addLog(panel, visit.log, url);
  panel.hidden = false;
  panel.scrollTop = 0;
  row.scrollIntoView({ block: "nearest" });
  panel.focus();
};
