// Turns the lines that measure.mjs has written into tables, summary lines and a report.
import {readFileSync, writeFileSync} from 'node:fs';
import {parseArgs} from 'node:util';
import {summarize} from './figures.mjs';
import {reportHtml} from './report_html.mjs';
import {reportText} from './report_text.mjs';

const HELP = `Usage: node live/measure/report.mjs [--json FILE] [--html FILE] [--title TEXT] LOADS...

Prints tables of the loads in these files, as measure.mjs wrote them. --json writes a line for each page, cache and way,
--html the report with waterfalls and pictures.
`;

try {
  const {values, positionals} = parseArgs({allowPositionals: true, options: {
    json: {type: 'string'}, html: {type: 'string'}, title: {type: 'string', default: 'Page loads, measured'}, help: {type: 'boolean'}}});
  if (values.help || positionals.length === 0) {
    console.log(HELP);
    process.exitCode = values.help ? 0 : 2;
  } else {
    const loads = positionals.flatMap((file) => readFileSync(file, 'utf8').split('\n').filter(Boolean).map((line) => JSON.parse(line)));
    const records = summarize(loads.filter(({filmstrip}) => !filmstrip));
    console.log(reportText(records));
    if (values.json) writeFileSync(values.json, records.map((record) => `${JSON.stringify(record)}\n`).join(''));
    if (values.html) writeFileSync(values.html, reportHtml(records, loads.filter(({filmstrip}) => filmstrip), values.title));
  }
} catch (error) {
  console.error(`report: ${error.message}`);
  process.exitCode = 2;
}
