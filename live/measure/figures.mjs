// What many loads say together. Loads are compared in pairs: each with the load of the browser alone that was made
// in the same round, so that what slows the whole machine down slows both.
import {METRICS} from './ways.mjs';

export function median(values) {
  const sorted = values.filter((value) => value !== null).sort((a, b) => a - b);
  if (sorted.length === 0) return null;
  const middle = sorted.length >> 1;
  return sorted.length % 2 === 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

// The interval that holds the true median with a probability of at least 95%, whatever the distribution: between
// two order statistics, by the binomial distribution. Null for fewer than six values, which no such pair bounds.
export function medianInterval(values) {
  const sorted = values.filter((value) => value !== null).sort((a, b) => a - b);
  const n = sorted.length;
  let probability = 0.5 ** n; // of no value below the median
  let below = probability;
  let rank = -1;
  for (let k = 0; below <= 0.025 && k < n; ++k) {
    rank = k;
    probability *= (n - k) / (k + 1);
    below += probability;
  }
  return rank < 0 ? null : [sorted[rank], sorted[n - 1 - rank]];
}

// `loads` are [{site, page, cache, way, round, …metrics}]. One record for each page, cache and way, with the medians
// of its loads, and for each metric `shares`: {share, low, high}, of the load of the browser alone in the same round.
export function summarize(loads) {
  const groups = new Map();
  for (const load of loads) {
    const key = JSON.stringify([load.site, load.page, load.cache, load.way]);
    groups.set(key, [...(groups.get(key) ?? []), load]);
  }
  return [...groups.values()].map((group) => {
    const {site, page, cache, way} = group[0];
    const record = {site, page, cache, way};
    const shares = {};
    for (const metric of Object.keys(METRICS)) {
      record[metric] = median(group.map((load) => load[metric]));
      const paired = group.flatMap((load) => {
        const alone = loads.find((other) => other.way === 'alone' && other.site === site && other.page === page &&
          other.cache === cache && other.round === load.round);
        return alone?.[metric] > 0 && load[metric] !== null ? [load[metric] / alone[metric]] : [];
      });
      const [low, high] = medianInterval(paired) ?? [null, null];
      shares[metric] = {share: median(paired), low, high};
    }
    return {...record, loads: group.length, shares};
  });
}

// Over the pages of a site: the median page's share, and the worst page's, for each cache, way and metric.
export function overPages(records) {
  const groups = new Map();
  for (const record of records) {
    const key = JSON.stringify([record.site, record.cache, record.way]);
    groups.set(key, [...(groups.get(key) ?? []), record]);
  }
  return [...groups.values()].map((group) => {
    const {site, cache, way} = group[0];
    const shares = {};
    for (const metric of Object.keys(METRICS)) {
      const all = group.map((record) => record.shares[metric].share).filter((share) => share !== null);
      shares[metric] = {share: median(all), worst: all.length > 0 ? Math.max(...all) : null};
    }
    return {site, cache, way, pages: group.length, shares};
  });
}
