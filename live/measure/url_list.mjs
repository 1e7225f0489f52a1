// Pages of servers that are not ours, from a file with one URL per line.
import {readFileSync} from 'node:fs';
import {connect} from 'node:net';

const REACH_MS = 10_000;

export class BadUrlList extends Error {}

// Lines that are empty or begin with # are left out. Throws BadUrlList with the line that is no URL.
export function readUrlList(path) {
  let text;
  try {
    text = readFileSync(path, 'utf8');
  } catch (error) {
    throw new BadUrlList(`${path}: cannot be read: ${error.code}`);
  }
  const pages = text.split('\n').flatMap((line, index) => {
    const word = line.trim();
    if (word === '' || word.startsWith('#')) return [];
    const url = URL.canParse(word) ? new URL(word) : undefined;
    if (url === undefined || !['http:', 'https:'].includes(url.protocol)) {
      throw new BadUrlList(`${path}:${index + 1}: '${word}' is not a URL of http or https`);
    }
    return [url.href];
  });
  if (pages.length === 0) throw new BadUrlList(`${path}: it holds no URL`);
  return pages;
}

const portOf = ({protocol, port}) => Number(port || (protocol === 'https:' ? 443 : 80));

// The ports of their servers that kiv_proxy opens no tunnels to unless it is told.
export function unusualPorts(pages) {
  const ports = pages.map((page) => new URL(page)).filter(({protocol}) => protocol === 'https:').map(portOf);
  return [...new Set(ports)].filter((port) => port !== 443);
}

// Throws BadUrlList when the server of one of them does not accept a connection.
export async function checkReachable(pages) {
  for (const page of pages) {
    const url = new URL(page);
    const why = await new Promise((resolve) => {
      const socket = connect({host: url.hostname.replace(/^\[|\]$/g, ''), port: portOf(url), timeout: REACH_MS}, () => resolve(undefined));
      socket.once('error', (error) => resolve(error.code ?? error.message));
      socket.once('timeout', () => resolve(`no answer in ${REACH_MS / 1000} s`));
      socket.once('connect', () => socket.destroy()).once('timeout', () => socket.destroy());
    });
    if (why !== undefined) throw new BadUrlList(`${page} cannot be reached from this machine (${why}): is there an internet connection?`);
  }
}
