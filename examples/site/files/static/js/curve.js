// Draws the tide curve from the table in tides.js, which must have run before.
const points = tideTable.slice(0, 96).map((metres, i) => `${(i * 600) / 95},${90 - metres * 14}`);
document.querySelector('.curve').innerHTML =
  `<svg viewBox="0 0 600 100"><polyline points="${points.join(' ')}" fill="none" stroke="#2c6e94" stroke-width="3"/></svg>`;
