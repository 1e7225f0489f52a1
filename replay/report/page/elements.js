// Elements and texts that all parts of the report's script use. The parts are embedded one after the other into one
// module, in the order in which CMakeLists.txt lists them. Times are microseconds.

// A new last child of `parent`.
const addElement = (parent, name, className = "", text = undefined) => {
  const element = parent.appendChild(document.createElement(name));
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
};

const addButton = (parent, className, text, onClick) => {
  const button = addElement(parent, "button", className, text);
  button.type = "button";
  button.addEventListener("click", onClick);
  return button;
};

const addHeading = (row, scope, text, className = "") => {
  const cell = addElement(row, "th", className, text);
  cell.scope = scope;
  return cell;
};

const millisecondsText = (us) => (us / 1000).toFixed(us < 10000 ? 1 : 0) + " ms";

const bytesText = (count) => {
  if (count < 1000) return count + " B";
  return count < 1e6 ? (count / 1e3).toFixed(1) + " kB" : (count / 1e6).toFixed(1) + " MB";
};

// The rows or other siblings of `element` that are to be seen: the next one in a direction, or null.
const nextVisible = (element, direction) => {
  do element = direction > 0 ? element.nextElementSibling : element.previousElementSibling;
  while (element && !element.offsetParent);
  return element;
};
