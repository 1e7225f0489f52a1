// Sorts the table of recordings by a column: numbers by their value, and what has none last.

const valueOf = (row, column) => {
  const text = row.cells[column]?.textContent.trim() ?? "";
  if (column === 0) return text.toLowerCase();
  const number = parseFloat(text.replace("−", "-").replace("+", ""));
  return Number.isNaN(number) ? null : number;
};

const compareValues = (left, right, descending) => {
  if (left === null || right === null) return (left === null) - (right === null);
  return (left < right ? -1 : left > right ? 1 : 0) * (descending ? -1 : 1);
};

const sortByColumn = (heading) => {
  const descending = heading.getAttribute("aria-sort") === "ascending";
  for (const other of heading.parentElement.cells) other.removeAttribute("aria-sort");
  heading.setAttribute("aria-sort", descending ? "descending" : "ascending");
  const body = heading.closest("table").tBodies[0];
  const rows = [...body.rows].map((row) => ({ row, value: valueOf(row, heading.cellIndex) }));
  rows.sort((left, right) => compareValues(left.value, right.value, descending));
  body.append(...rows.map(({ row }) => row));
};

for (const heading of document.querySelectorAll("th[data-sort]")) {
  const texts = [...heading.childNodes];
  addButton(heading, "", "", () => sortByColumn(heading)).append(...texts);
}
