// The visits, by recording and page: draws the waterfall of one when it is opened, and shows only those that are wanted,
// in the order that is wanted.

const openVisit = (details) => {
  const place = details.querySelector(".waterfall");
  if (!details.open || place.firstChild) return;
  const section = details.closest("section");
  section.data ??= JSON.parse(section.querySelector("script").textContent);
  drawWaterfall(place, readVisit(section.data, details.dataset.visit));
};
for (const details of document.querySelectorAll("details.visit")) details.addEventListener("toggle", () => openVisit(details));

// A link to a visit opens it.
const followLink = () => {
  const target = document.getElementById(location.hash.slice(1));
  if (!(target instanceof HTMLDetailsElement)) return;
  target.open = true;
  openVisit(target);
  target.scrollIntoView();
};
addEventListener("hashchange", followLink);
followLink();

// --- What is shown, and in which order.

const filter = document.getElementById("filter");
const [search, kind, order, found] = ["search", "kind", "order", "found"].map((id) => document.getElementById(id));

const recordings = [...document.querySelectorAll("main > .recording")].map((section) => ({
  section,
  row: document.querySelector(`tr[data-section="${section.id}"]`),
  name: section.querySelector("h2").textContent.toLowerCase(),
  end: section.querySelector(".tables"),  // the pages come before it
  pages: [...section.querySelectorAll(".page")].map((page) => ({
    page,
    address: page.querySelector("h3").textContent.toLowerCase(),
    visits: [...page.querySelectorAll("details.visit")].map((details) => ({
      details,
      tags: details.dataset.tags.split(" "),
      gains: { paint: Number(details.dataset.paint), load: Number(details.dataset.load) },
    })),
  })),
}));

const showWanted = () => {
  const words = search.value.toLowerCase().split(/\s+/).filter(Boolean);
  let visitCount = 0, recordingCount = 0;
  for (const { section, row, name, pages } of recordings) {
    let any = false;
    for (const { page, address, visits } of pages) {
      const text = name + " " + address;
      const isWanted = words.every((word) => text.includes(word));
      let shown = 0;
      for (const { details, tags } of visits) {
        details.hidden = !isWanted || (kind.value !== "" && !tags.includes(kind.value));
        if (!details.hidden) ++shown;
      }
      page.hidden = shown === 0;
      visitCount += shown;
      any ||= shown > 0;
    }
    // What a merge knows only the figures of has a name, but no visits.
    if (pages.length === 0) any = kind.value === "" && words.every((word) => name.includes(word));
    section.hidden = !any;
    if (row) row.hidden = !any;
    if (any) ++recordingCount;
  }
  const isAll = words.length === 0 && kind.value === "";
  const countText = (count, name) => `${count} ${name}${count === 1 ? "" : "s"}`;
  found.textContent = isAll ? "" : `${countText(visitCount, "visit")} of ${countText(recordingCount, "recording")}`;
};

// By the gain of a visit, which is that of its page and of its recording when it comes first there. First visits teach;
// they have no gain, and stay first.
const sortVisits = () => {
  const [event, direction] = order.value.split(" ");
  const keyOf = ({ tags, gains }) => tags.includes("first") ? -Infinity : gains[event] * (direction === "most" ? -1 : 1);
  const least = (keys) => Math.min(...keys.filter(Number.isFinite), Infinity);
  const main = recordings[0]?.section.parentElement;
  const legend = main?.querySelector(".legend");
  const keyed = recordings.map((recording, place) => {
    const pages = recording.pages.map(({ page, visits }, pagePlace) => {
      const sorted = event ? visits.toSorted((left, right) => keyOf(left) - keyOf(right)) : visits;
      page.append(...sorted.map(({ details }) => details));
      return { page, key: event ? least(visits.map(keyOf)) : pagePlace };
    });
    pages.sort((left, right) => left.key - right.key);
    for (const { page } of pages) recording.section.insertBefore(page, recording.end);
    return { section: recording.section, key: event ? least(pages.map(({ key }) => key)) : place };
  });
  keyed.sort((left, right) => left.key - right.key);
  for (const { section } of keyed) main.insertBefore(section, legend);
};

filter.hidden = false;
filter.addEventListener("submit", (event) => event.preventDefault());
search.addEventListener("input", showWanted);
kind.addEventListener("input", showWanted);
order.addEventListener("input", sortVisits);
