// Which part of a visit's time its waterfall shows. All columns of bars show the same part, so that they can be compared.
// The bars stand on lanes that are as wide as the whole time; zooming makes the lanes wider than the columns, and panning
// moves them, so that no bar has to be placed again.

const kShortestViewUs = 5000;
const kMostZoom = 400;  // browsers lose precision on lanes that are much wider
const kZoomStep = 1.5;
const kMoveStep = 0.2;  // of what is shown

// The rounded distance between the ticks of an axis that shows `span`.
const tickStep = (span) => {
  const rough = span / 5;
  const power = 10 ** Math.floor(Math.log10(rough));
  return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step >= rough);
};

const tickText = (us, step, last) => {
  if (us === 0) return "0";
  if (last < 1e6) return us / 1000 + " ms";
  return (us / 1e6).toFixed(Math.max(0, Math.ceil(-Math.log10(step / 1e6) - 1e-9))) + " s";
};

// `table` gets the custom properties by which the style places its lanes, `axes` the ticks; `tell` is called with the text of
// what is shown.
const createTimeView = (table, axes, span, tell) => {
  const mostZoom = Math.min(kMostZoom, Math.max(1, span / kShortestViewUs));
  let zoom = 1;
  let from = 0;  // what is at the left edge, as a share of the span
  let frame = 0;

  const drawTicks = () => {
    const shown = span / zoom;
    const first = from * span;
    const step = tickStep(shown);
    table.style.setProperty("--step", step / span * 100 + "%");
    for (const axis of axes) {
      axis.replaceChildren();
      for (let tick = Math.ceil(first / step - 1e-9); tick * step < first + shown * 0.97; ++tick) {
        const share = (tick * step - first) / shown;
        const text = tickText(tick * step, step, first + shown);
        addElement(axis, "span", share < 0.02 ? "edge" : "", text).style.left = share * 100 + "%";
      }
    }
    tell(`${(first / 1e6).toFixed(3)} to ${((first + shown) / 1e6).toFixed(3)} s`);
  };
  const update = () => {
    frame = 0;
    table.classList.toggle("zoomed", zoom > 1);
    table.style.setProperty("--zoom", zoom);
    table.style.setProperty("--pan", -from * zoom);
    drawTicks();
  };
  const set = (newZoom, newFrom) => {
    zoom = Math.min(mostZoom, Math.max(1, newZoom));
    from = Math.min(1 - 1 / zoom, Math.max(0, newFrom));
    frame ||= requestAnimationFrame(update);
  };
  update();

  return {
    isZoomed: () => zoom > 1,
    // `at` is the place that stays where it is, as a share of the column.
    zoomBy(factor, at = 0.5) {
      const newZoom = Math.min(mostZoom, Math.max(1, zoom * factor));
      set(newZoom, from + at / zoom - at / newZoom);
    },
    moveBy(share) { set(zoom, from + share / zoom); },  // of what is shown, to the right
    reset() { set(1, 0); },
  };
};

// --- What moves a view: keys, the wheel with a modifier, and dragging with a mouse or with fingers.

const addKeys = (place, view) => {
  const keys = {
    "+": () => view.zoomBy(kZoomStep),
    "=": () => view.zoomBy(kZoomStep),  // the key of + without shift
    "-": () => view.zoomBy(1 / kZoomStep),
    "0": () => view.reset(),
    ArrowLeft: () => view.moveBy(-kMoveStep),
    ArrowRight: () => view.moveBy(kMoveStep),
  };
  place.addEventListener("keydown", (event) => {
    const act = event.ctrlKey || event.metaKey || event.altKey ? undefined : keys[event.key];
    if (!act) return;
    event.preventDefault();
    act();
  });
};

// The column of bars that an event happened in; null elsewhere.
const columnOf = (event) => event.target.closest(".way")?.querySelector(".w, .axis") ?? null;
const shareIn = (column, clientX) => {
  const { left, width } = column.getBoundingClientRect();
  return (clientX - left) / width;
};

const addWheel = (table, view) => {
  table.addEventListener("wheel", (event) => {
    const column = columnOf(event);
    if (!column) return;
    if (event.ctrlKey || event.metaKey || event.altKey) {
      view.zoomBy(2 ** (-(event.deltaY || event.deltaX) / 240), shareIn(column, event.clientX));
    } else if (view.isZoomed() && (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY))) {
      view.moveBy((event.deltaX || event.deltaY) / column.clientWidth);
    } else {
      return;  // the page scrolls
    }
    event.preventDefault();
  }, { passive: false });
};

const addDragging = (table, view) => {
  const kClickPx = 4;  // a pointer that moves less far has clicked
  const pointers = new Map();
  let moved = 0;
  table.addEventListener("pointerdown", (event) => {
    const column = columnOf(event);
    if (!column || event.button !== 0) return;
    if (pointers.size === 0) moved = 0;
    pointers.set(event.pointerId, { column, x: event.clientX });
  });
  table.addEventListener("pointermove", (event) => {
    const pointer = pointers.get(event.pointerId);
    if (!pointer) return;
    const before = [...pointers.values()].map(({ x }) => x);
    const dx = event.clientX - pointer.x;
    pointer.x = event.clientX;
    moved += Math.abs(dx);
    if (moved < kClickPx) return;
    table.setPointerCapture(event.pointerId);
    if (pointers.size === 1) {
      view.moveBy(-dx / pointer.column.clientWidth);
      return;
    }
    const after = [...pointers.values()].map(({ x }) => x);  // two fingers: their distance zooms
    const distance = ([left, right]) => Math.max(20, Math.abs(left - right));
    view.zoomBy(distance(after) / distance(before), shareIn(pointer.column, (after[0] + after[1]) / 2));
  });
  for (const type of ["pointerup", "pointercancel"]) {
    table.addEventListener(type, (event) => pointers.delete(event.pointerId));
  }
  // The click that ends a drag chooses no request.
  table.addEventListener("click", (event) => {
    if (moved >= kClickPx && columnOf(event)) event.stopPropagation();
    moved = 0;
  }, { capture: true });
};
