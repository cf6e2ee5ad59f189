// --- Places: lines as their files have them
//
// A step is the number of a line among all of the session.

const sources = data.sources.map((source, i) => {
  const base = source.name.split("/").pop();
  const isShared = data.sources.some((other) => other.name !== source.name && other.name.split("/").pop() === base);
  return { ...source, short: isShared ? source.name : base, end: i + 1 < data.sources.length ? data.sources[i + 1].before : Infinity };
});
const sourceOf = (step) => sources.findLast(({ before }) => before < step);
const placeOf = (step, name) => {
  const source = sourceOf(step);
  return source ? `${source[name]}:${step - source.before}` : "before the first line";
};
const placeText = (step) => placeOf(step, "short");
// The number alone where there is but one file.
const placeNumber = (step) => step === undefined ? "" : step === 0 ? "0" : sources.length > 1 ? placeText(step) : String(step - (sourceOf(step)?.before ?? 0));

// Of LINE, or FILE:LINE. A number alone is one of the given source. NaN for what is neither.
function stepOf(text, source) {
  const [, name, line] = /^\s*(?:(.*):)?(\d+)\s*$/.exec(text) || [];
  const found = name === undefined ? source : sources.find((each) => each.name === name || each.short === name);
  return line !== undefined && found ? Math.min(found.before + Number(line), found.end) : NaN;
}

const lineTexts = new Map();
data.events.what.forEach((what, i) => {
  if (what === 0) {
    lineTexts.set(data.events.step[i], data.events.text[i]);
  }
});
const lineText = (step) => lineTexts.get(step) || "";

// --- What the page shows, which the fragment of its address holds as far as it is not as at first

const defaults = {
  kind: data.happened[3] ? "failure" : "all",
  search: "", from: "", to: "", object: "", traces: "folded",
  root: "", untouched: "hidden",
  line: "", time: "",
  axis: data.times.bins.filter((bin) => bin.some((count) => count)).length > 2 ? "times" : "steps",
  keys: "",
};
const state = {};

function stateOfFragment() {
  const given = location.hash.includes("=") ? new URLSearchParams(location.hash.slice(1)) : [];
  return { ...defaults, ...Object.fromEntries([...given].filter(([name]) => name in defaults)) };
}

function fragment() {
  const changed = Object.entries(state).filter(([name, value]) => value !== defaults[name]);
  return String(new URLSearchParams(changed));
}

// A step is one that going back in the browser undoes.
function stateIs(changes, isStep = false) {
  const before = { ...state };
  Object.assign(state, changes);
  const text = fragment();
  const address = location.href.split("#")[0] + (text ? `#${text}` : "");
  if (address !== location.href) {
    history[isStep ? "pushState" : "replaceState"](null, "", address);
  }
  drawState(before);
}

// What of the state is drawn anew, by who shows it: its names, and what draws.
const drawers = [];

function drawState(before) {
  for (const [names, drawPart] of drawers) {
    if (!before || names.some((name) => state[name] !== before[name])) {
      drawPart();
    }
  }
}

