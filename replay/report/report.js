"use strict";
// Sorts and filters what the report holds as plain HTML, and draws the waterfall of a visit when it is opened. The
// data of the waterfalls is described in report_waterfall.h.
(() => {
  const add = (parent, name, className, text) => {
    const element = parent.appendChild(document.createElement(name));
    if (className) element.className = className;
    if (text !== undefined) element.textContent = text;
    return element;
  };
  const ms = (us) => (us / 1000).toFixed(us < 10000 ? 1 : 0) + " ms";
  const bytes = (count) => count < 1000 ? count + " B" : count < 1e6 ? (count / 1e3).toFixed(1) + " kB" : (count / 1e6).toFixed(1) + " MB";

  // --- The panel with everything that is known of one request. It works with a keyboard and on touch screens.

  const panel = add(document.body, "aside", "panel");
  panel.hidden = true;
  panel.tabIndex = -1;
  panel.setAttribute("aria-labelledby", "panel-title");
  let opener = null;
  const closePanel = () => {
    if (panel.hidden) return;
    panel.hidden = true;
    if (opener) opener.focus();
  };
  document.addEventListener("keydown", (event) => { if (event.key === "Escape") closePanel(); });

  const openPanel = (button, title, facts, timings) => {
    opener = button;
    panel.replaceChildren();
    const close = add(panel, "button", "close", "Close");
    close.type = "button";
    close.addEventListener("click", closePanel);
    add(panel, "h3", "", title).id = "panel-title";
    const list = add(panel, "dl");
    for (const [name, value] of facts) {
      if (value === "") continue;
      add(list, "dt", "", name);
      add(list, "dd", "", value);
    }
    const table = timings.length ? add(panel, "table", "figures") : document.createElement("table");  // a preload has none
    add(table, "caption", "", "In all ways, from the page's request on");
    const head = add(add(table, "thead"), "tr");
    for (const name of ["way", "from", "asked", "sent", "first byte", "done"]) add(head, "th", "", name).scope = "col";
    const body = add(table, "tbody");
    for (const [way, source, ...times] of timings) {
      const row = add(body, "tr");
      add(row, "th", "", way).scope = "row";
      add(row, "td", "left", source);
      for (const time of times) add(row, "td", "", time === null ? "–" : ms(time));
    }
    panel.hidden = false;
    panel.focus();
  };

  // --- Waterfalls

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

  const stepOf = (span) => {
    const rough = span / 6;
    const power = 10 ** Math.floor(Math.log10(rough));
    return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step >= rough);
  };
  const tickText = (us, step) => us === 0 ? "0" : step >= 1e6 ? us / 1e6 + " s" : step >= 1e5 ? (us / 1e6).toFixed(1) + " s" : us / 1000 + " ms";

  const describe = ([wanted, connect, sent, first, end]) => {
    const parts = ["asked at " + ms(wanted)];
    if (sent > connect) parts.push("connecting from " + ms(connect));
    if (end > wanted) parts.push("sent at " + ms(sent), "first byte at " + ms(first));
    parts.push("done at " + ms(end));
    return parts.join(", ");
  };

  const draw = (visit, data, place) => {
    const { urls } = data;
    const page = urls[visit.page];
    const requests = data.pages[visit.load];
    const wayNames = visit.ways.map(([name]) => name);
    const wayOf = (name) => visit.ways.find(([way]) => way === name);
    const ends = visit.lines.flatMap(([, off, plugin, , , preload]) => [off && off[4], plugin && plugin[4], preload && preload[7]].filter((end) => end !== null));
    const span = Math.max(1000, ...visit.ways.flatMap(([, paint, content, load]) => [paint, content, load]), ...ends) * 1.02;
    const percent = (us) => (us / span * 100).toFixed(3) + "%";

    const segment = (bar, className, from, to) => {
      if (to <= from) return;
      const element = add(bar, "i", className);
      element.style.left = percent(from);
      element.style.width = percent(to - from);
    };
    const mark = (bar, className, at) => { add(bar, "i", className).style.left = percent(at); };
    const barIn = (row, way, text) => {
      const bar = add(add(row, "td", "way " + way), "span", "w");
      if (text) {
        bar.setAttribute("role", "img");
        bar.setAttribute("aria-label", text);
      }
      return bar;
    };
    const requestBar = (bar, [wanted, connect, sent, first, end]) => {
      segment(bar, "q", wanted, connect);
      segment(bar, "c", connect, sent);
      segment(bar, "f", sent, first);
      segment(bar, "r", first, end);
    };
    const preloadBar = (bar, [, , ordered, launched, connect, sent, first, end, , fate]) => {
      const unused = fate === "served" || fate === "joined" ? "" : " unused";
      segment(bar, "pq" + unused, ordered, Math.max(launched, connect));
      segment(bar, "pc" + unused, connect, sent);
      segment(bar, "pf" + unused, sent, first);
      segment(bar, "pr" + unused, first, end);
    };

    const offBar = (row, off) => {
      const bar = barIn(row, "off", off && "Without the plugin: " + describe(off));
      if (!off) return;
      requestBar(bar, off);
      if (off[4] === off[0]) mark(bar, "m cache", off[0]);
    };
    const pluginBar = (row, [, , times, source, why, preload]) => {
      const parts = [];
      if (times) parts.push(source + ": " + describe(times) + (why ? " (" + why + ")" : ""));
      if (preload) parts.push(`preload launched at ${ms(preload[3])}, done at ${ms(preload[7])}, ${bytes(preload[8])}, ${preload[9]}`);
      const bar = barIn(row, "plugin", parts.length ? "With the plugin: " + parts.join("; ") : "");
      if (preload) preloadBar(bar, preload);
      if (!times) return;
      if (source === "served") {
        if (preload) segment(bar, "held", preload[7], times[0]);
        mark(bar, "m served", times[0]);
      } else if (source === "joined") {
        mark(bar, "m joined", times[0]);
      } else if (source === "disk cache") {
        mark(bar, "m cache", times[0]);
      } else {
        requestBar(bar, times);
      }
    };

    const show = (button, line, url, request) => {
      const [, off, plugin, source, why, preload, others] = line;
      const facts = [];
      if (request) {
        const [, kind, method, status, protocol, size, initiator, beacon] = request;
        facts.push(["Request", `${method}, ${protocol}, status ${status}, ${bytes(size)}`], ["Kind", kind || "unknown"],
          ["Asked for by", initiator < 0 ? "" : urls[initiator]], ["Beacon", beacon ? "yes" : ""],
          ["Ended the load of", visit.ways.filter(([, , , , last]) => last === line[0]).map(([way]) => way).join(", ")],
          ["With the plugin", source], ["Why not served", source === "served" ? "" : why]);
      }
      if (preload) {
        const [, kind, ordered, launched, , sent, first, end, size, fate] = preload;
        if (!request) facts.push(["Kind", kind || "unknown"]);
        facts.push(["Preload", `${fate}, ${bytes(size)}; ordered at ${ms(ordered)}, launched at ${ms(launched)}, sent at ${ms(sent)}, first byte at ${ms(first)}, done at ${ms(end)}`]);
      }
      const timings = [];
      if (off) timings.push(["off", off[4] === off[0] ? "disk cache" : "network", off[0], off[2], off[3], off[4]]);
      if (plugin) timings.push(["plugin", source, plugin[0], plugin[2], plugin[3], plugin[4]]);
      others.forEach(([from, wanted, end], place) => timings.push([wayNames[place + 2], from, wanted, null, null, end]));
      openPanel(button, url, facts, timings);
    };

    const cached = visit.lines.filter(([, , plugin, source, , preload]) => plugin && source === "disk cache" && !preload).length;
    const table = document.createElement("table");
    if (cached) {
      const toggle = add(place, "button", "toggle");
      toggle.type = "button";
      const update = (hidden) => {
        table.classList.toggle("collapsed", hidden);
        toggle.setAttribute("aria-expanded", String(!hidden));
        toggle.textContent = `${hidden ? "Show" : "Hide"} ${cached} from the disk cache`;
      };
      toggle.addEventListener("click", () => update(!table.classList.contains("collapsed")));
      update(true);
    }
    place.append(table);
    table.style.setProperty("--step", (stepOf(span) / span * 100) + "%");
    // The moments of the ways are lines through all rows.
    for (const [way, paint, content, load] of visit.ways) {
      table.style.setProperty(`--${way}-paint`, percent(paint));
      table.style.setProperty(`--${way}-content`, percent(content));
      table.style.setProperty(`--${way}-load`, percent(load));
    }
    add(table, "caption", "hidden", "Requests of " + page);
    const head = add(add(table, "thead"), "tr");
    for (const [className, text] of [["number", "No."], ["name", "Resource"], ["kind", "Kind"], ["way off", "Without the plugin"], ["way plugin", "With the plugin"], ["outcome", "Outcome"]]) {
      const cell = add(head, "th", className);
      cell.scope = "col";
      if (!className.startsWith("way")) {
        cell.textContent = text;
        continue;
      }
      add(cell, "span", "way-name", text);
      const axis = add(cell, "span", "axis");
      for (let at = 0; at < span * 0.97; at += stepOf(span)) add(axis, "span", "", tickText(at, stepOf(span))).style.left = percent(at);
    }

    const body = add(table, "tbody");
    visit.lines.forEach((line, index) => {
      const [number, off, plugin, source, why, preload] = line;
      const request = number === null ? null : requests[number];
      const url = urls[request ? request[0] : preload[0]];
      const row = add(body, "tr", plugin && source === "disk cache" && !preload ? "cached" : "");
      add(row, "td", "number", index + 1);
      const [file, server] = nameOf(url, page);
      const name = add(row, "th", "name");
      name.scope = "row";
      const button = add(name, "button", "", file);
      button.type = "button";
      button.addEventListener("click", () => show(button, line, url, request));
      if (server) add(name, "span", "", " " + server);
      add(row, "td", "kind", request ? request[1] : preload[1]);
      offBar(row, off);
      pluginBar(row, line);
      const unused = preload && preload[9] !== "served" && preload[9] !== "joined";
      const outcome = plugin ? (source === "joined" ? "joined" : why || source) : `${preload[9]}, ${bytes(preload[8])}`;
      const state = source === "served" || source === "joined" ? source : unused ? "unused" : "";
      const last = add(row, "td", "outcome " + state, (state === "unused" ? "✕ " : state ? "✓ " : "") + outcome);
      if (request && request[7]) add(last, "span", "tag", "beacon");
      const ended = ["off", "plugin"].filter((way) => number !== null && wayOf(way)[4] === number);
      if (ended.length) add(last, "span", "tag ended", ended.length === 2 ? "ended both" : "ended " + ended[0]);
    });
    body.addEventListener("keydown", (event) => {
      const step = { ArrowDown: "nextElementSibling", ArrowUp: "previousElementSibling" }[event.key];
      let row = event.target.closest("tr");
      if (!step || !row) return;
      do row = row[step]; while (row && !row.offsetParent);
      if (!row) return;
      event.preventDefault();
      row.querySelector("button").focus();
    });
  };

  const open = (details) => {
    const place = details.querySelector(".waterfall");
    if (!details.open || place.firstChild) return;
    const section = details.closest("section");
    section.data ??= JSON.parse(section.querySelector("script").textContent);
    draw(section.data.visits[details.dataset.visit], section.data, place);
  };
  for (const details of document.querySelectorAll("details.visit")) details.addEventListener("toggle", () => open(details));

  // A link to a visit opens it.
  const follow = () => {
    const target = document.getElementById(location.hash.slice(1));
    if (target instanceof HTMLDetailsElement) {
      target.open = true;
      open(target);
      target.scrollIntoView();
    }
  };
  addEventListener("hashchange", follow);
  follow();

  // --- Sorting the recordings by a column; numbers by their value, what has none last.

  const valueOf = (row, column) => {
    const text = row.cells[column]?.textContent.trim() ?? "";
    if (column === 0) return text.toLowerCase();
    const number = parseFloat(text.replace("−", "-").replace("+", ""));
    return Number.isNaN(number) ? null : number;
  };
  for (const heading of document.querySelectorAll("th[data-sort]")) {
    const button = document.createElement("button");
    button.type = "button";
    button.append(...heading.childNodes);
    heading.append(button);
    button.addEventListener("click", () => {
      const descending = heading.getAttribute("aria-sort") === "ascending";
      for (const other of heading.parentElement.cells) other.removeAttribute("aria-sort");
      heading.setAttribute("aria-sort", descending ? "descending" : "ascending");
      const body = heading.closest("table").tBodies[0];
      const rows = [...body.rows].map((row) => [valueOf(row, heading.cellIndex), row]);
      rows.sort(([left], [right]) => {
        if (left === null || right === null) return (left === null) - (right === null);
        return (left < right ? -1 : left > right ? 1 : 0) * (descending ? -1 : 1);
      });
      body.append(...rows.map(([, row]) => row));
    });
  }

  // --- Showing only the recordings and visits that are wanted.

  const sections = [...document.querySelectorAll("main > section[id]")];
  const filter = document.getElementById("filter");
  const search = document.getElementById("search");
  const kind = document.getElementById("kind");
  const found = document.getElementById("found");
  const apply = () => {
    const words = search.value.toLowerCase().split(/\s+/).filter(Boolean);
    const matches = (text) => words.every((word) => text.includes(word));
    let visits = 0;
    for (const section of sections) {
      const recording = section.querySelector("h2").textContent.toLowerCase();
      let any = false;
      for (const page of section.querySelectorAll(".page")) {
        const text = recording + " " + page.querySelector("h3").textContent.toLowerCase();
        let shown = 0;
        for (const visit of page.querySelectorAll("details.visit")) {
          visit.hidden = !matches(text) || (kind.value !== "" && !visit.dataset.tags.split(" ").includes(kind.value));
          if (!visit.hidden) ++shown;
        }
        page.hidden = shown === 0;
        visits += shown;
        any ||= shown > 0;
      }
      section.hidden = !any;
      const row = document.querySelector(`tr[data-section="${section.id}"]`);
      if (row) row.hidden = !any;
    }
    const all = sections.filter((section) => !section.hidden).length;
    found.textContent = words.length || kind.value ? `${visits} visits of ${all} recordings` : "";
  };
  filter.hidden = false;
  filter.addEventListener("submit", (event) => event.preventDefault());
  search.addEventListener("input", apply);
  kind.addEventListener("input", apply);
})();
