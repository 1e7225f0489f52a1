"use strict";
// Draws the waterfalls of a visit when it is opened. The arrays are described where the report is written.
(() => {
  const add = (parent, name, className, text) => {
    const element = parent.appendChild(document.createElement(name));
    if (className) element.className = className;
    if (text !== undefined) element.textContent = text;
    return element;
  };
  const ms = (us) => (us / 1000).toFixed(us < 10000 ? 1 : 0) + " ms";
  const bytes = (count) => count < 1000 ? count + " B" : count < 1e6 ? (count / 1e3).toFixed(1) + " kB" : (count / 1e6).toFixed(1) + " MB";

  // The last part of the path, and the host where it is not the page's.
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

  const describe = (times) => {
    const [wanted, connect, sent, first, end] = times;
    const parts = ["asked at " + ms(wanted)];
    if (sent > connect) parts.push("connecting from " + ms(connect));
    if (end > wanted) parts.push("sent at " + ms(sent), "first byte at " + ms(first));
    parts.push("done at " + ms(end));
    return parts.join(", ");
  };
  const describePreload = ([ordered, launched, , , first, end], count, fate) =>
    `preload ordered at ${ms(ordered)}, launched at ${ms(launched)}, first byte at ${ms(first)}, done at ${ms(end)}, ${bytes(count)}, ${fate}`;

  const draw = (visit, urls, place) => {
    const page = urls[visit.page];
    const ends = visit.lines.flatMap((line) => [line[2], line[3], line[6]].filter(Boolean).map((times) => times[times.length - 1]));
    const span = Math.max(1000, ...visit.ways.flatMap(([, ...times]) => times), ...ends) * 1.02;
    const percent = (us) => (us / span * 100).toFixed(3) + "%";

    const segment = (bar, className, from, to) => {
      if (to <= from) return;
      const element = add(bar, "i", className);
      element.style.left = percent(from);
      element.style.width = percent(to - from);
    };
    const mark = (bar, className, at) => { add(bar, "i", className).style.left = percent(at); };
    const barIn = (row, way, text) => {
      const cell = add(row, "td", "way " + way);
      cell.setAttribute("role", "cell");
      const bar = add(cell, "span", "w");
      if (text) {
        bar.title = text;
        bar.setAttribute("role", "img");
        bar.setAttribute("aria-label", text);
      }
      return bar;
    };
    const request = (bar, [wanted, connect, sent, first, end]) => {
      segment(bar, "q", wanted, connect);
      segment(bar, "c", connect, sent);
      segment(bar, "f", sent, first);
      segment(bar, "r", first, end);
    };
    const preload = (bar, [ordered, launched, connect, sent, first, end]) => {
      segment(bar, "pq", ordered, Math.max(launched, connect));
      segment(bar, "pc", connect, sent);
      segment(bar, "pf", sent, first);
      segment(bar, "pr", first, end);
    };

    const offBar = (row, line) => {
      const bar = barIn(row, "off", line[2] && "Off: " + describe(line[2]));
      for (const [way, , , load] of visit.ways) if (way === "off") mark(bar, "load off", load);
      if (!line[2]) return;
      request(bar, line[2]);
      if (line[2][4] === line[2][0]) mark(bar, "m cache", line[2][0]);
    };
    const pluginBar = (row, line) => {
      const [, , , times, source, why, preloaded, count, fate] = line;
      const parts = [];
      if (times) parts.push(source + ": " + describe(times) + (why ? " (" + why + ")" : ""));
      if (preloaded) parts.push(describePreload(preloaded, count, fate));
      const bar = barIn(row, "plugin", parts.length ? "Plugin: " + parts.join("; ") : "");
      for (const [way, , , load] of visit.ways) if (way !== "off") mark(bar, "load " + way, load);
      if (preloaded) preload(bar, preloaded);
      if (!times) return;
      if (source === "served") {
        if (preloaded) segment(bar, "held", preloaded[5], times[0]);
        mark(bar, "m served", times[0]);
      } else if (source === "joined") {
        mark(bar, "m joined", times[0]);
      } else if (source === "disk cache") {
        mark(bar, "m cache", times[0]);
      } else {
        request(bar, times);
      }
    };

    const table = add(place, "table");
    table.setAttribute("role", "table");
    table.style.setProperty("--step", (stepOf(span) / span * 100) + "%");
    add(table, "caption", "hidden", "Requests of " + page);
    const head = add(add(table, "thead"), "tr");
    for (const [className, text] of [["number", ""], ["name", "Resource"], ["kind", "Kind"], ["way off", "Without the plugin"], ["way plugin", "With the plugin"], ["outcome", "Outcome"]]) {
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
      const [url, kind, , times, source, why, preloaded, count, fate] = line;
      const row = add(body, "tr");
      row.setAttribute("role", "row");
      const cell = (className, text) => {
        const element = add(row, "td", className, text);
        element.setAttribute("role", "cell");
        return element;
      };
      cell("number", index + 1);
      const [file, host] = nameOf(urls[url], page);
      const name = cell("name", file);
      name.title = urls[url];
      if (host) add(name, "span", "", " " + host);
      cell("kind", kind);
      offBar(row, line);
      pluginBar(row, line);
      const outcome = times ? (why || source) : fate + ", " + bytes(count);
      const state = times ? source : "unused";
      const last = cell("outcome " + (state === "served" || state === "joined" || state === "unused" ? state : ""),
                        source === "joined" ? "joined" : outcome);
      last.title = source && why ? source + ": " + why : outcome;
    });
  };

  const open = (details) => {
    const place = details.querySelector(".waterfall");
    if (!details.open || place.firstChild) return;
    const section = details.closest("section");
    section.data ??= JSON.parse(section.querySelector("script").textContent);
    const number = [...section.querySelectorAll("details.visit")].indexOf(details);
    draw(section.data.visits[number], section.data.urls, place);
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
})();
