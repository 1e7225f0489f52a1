// The data of the waterfalls, as report_waterfall.h describes them, read into records with names.

// Moments are stored as the time since the moment before.
const readMoments = (start, steps) => {
  let at = start;
  return steps.map((step) => at += step);
};

// A visit of a recording: its page, its ways by name, and the lines of its waterfall.
const readVisit = ({ texts, pages, visits }, index) => {
  const visit = visits[index];
  const ways = visit.ways.map(([name, paint, content, load, last]) => ({ name, paint, content, load, last }));
  const urlOf = (number) => number < 0 ? "" : texts[number];

  const readRequest = (number) => {
    const [url, kind, method, status, protocol, size, initiator, beacon] = pages[visit.load][number];
    return {
      number, url: texts[url], kind: texts[kind], method: texts[method], status, protocol: texts[protocol], size,
      initiator: urlOf(initiator), beacon: beacon !== 0,
    };
  };
  const readPreload = (fields) => {
    if (fields === null) return null;
    const [url, kind, fate, size, ordered, launched, ...rest] = fields;
    const [connect, sent, first, end] = readMoments(launched, rest);
    return {
      url: texts[url], kind: texts[kind], fate: texts[fate], size, ordered, launched, connect, sent, first, end,
      used: ["served", "joined"].includes(texts[fate]),
    };
  };
  const readAnswer = ([source, ...steps]) => {
    const [wanted, connect, sent, first, end] = readMoments(0, steps);
    return { source: texts[source], wanted, connect, sent, first, end };
  };
  const readLine = ([number, why, preload, ...answers]) => ({
    request: number === null ? null : readRequest(number),
    why: texts[why],
    preload: readPreload(preload),
    // By way: where the response came from, and when.
    answers: new Map(answers.flatMap((answer, place) => answer === null ? [] :
      [[ways[place].name, readAnswer(answer)]])),
  });

  return {
    page: texts[visit.page],
    ways: new Map(ways.map((way) => [way.name, way])),
    lines: visit.lines.map(readLine),
    // What the plugin's log said: when, and the line around a URL. Null when it was not kept.
    log: visit.log?.map(([at, before, url, after]) => ({ at, url: texts[url], text: before + texts[url] + after })) ?? null,
  };
};
