// --- Tables

const openRows = 25;
const tables = data.tables.map((table) => ({ ...table, place: make("div", { class: "rows" }), count: make("small") }));
const columnTouched = (table) => data.columns.some((column, i) =>
  touched.has(i) && column.name === table.name && data.roots[column.root].name === table.root);

const rowsContaining = (table) => {
  const words = state.keys.toLowerCase().split(/\s+/).filter(Boolean);
  return table.rows.filter(([key, value]) => words.every((word) => `${key} ${value}`.toLowerCase().includes(word)));
};

function fillTable(table) {
  const rows = rowsContaining(table);
  const values = rows.some(([, value]) => value);
  const cells = (tag, ...each) => each.slice(0, values ? 2 : 1).map((content) => make(tag, tag === "td" ? { class: "text" } : {}, content));
  const body = make("tbody", {}, ...rows.map(([key, value]) => make("tr", {}, ...cells("td", objectLink(key, key), value))));
  table.place.replaceChildren(
    make("table", {}, make("thead", {}, make("tr", {}, ...cells("th", table.key, table.value))), body),
    ...(table.size > table.rows.length ? [make("p", { class: "note" }, `${number(table.rows.length)} of ${number(table.size)} entries; show ${table.root}.${table.name} lists all.`)] : []));
}

// The search goes through all that the page has, in what is folded too.
function searchTables() {
  if (byId("keys").value !== state.keys) {
    byId("keys").value = state.keys;
  }
  let found = 0;
  for (const table of tables.filter((each) => each.details)) {
    const rows = rowsContaining(table).length;
    found += rows;
    table.count.textContent = state.keys ? `${number(rows)} of ${plural(table.size, "entry")}` : plural(table.size, "entry");
    table.details.hidden = rows === 0;
    table.details.open = state.keys ? rows > 0 && rows <= openRows : table.size <= openRows;
    if (table.details.open) {
      fillTable(table);
    }
  }
  const cut = tables.reduce((sum, { size, rows }) => sum + size - rows.length, 0);
  const cutTables = tables.filter(({ size, rows }) => size > rows.length).map(({ root, name, size, rows }) => `${root}.${name} ${number(size - rows.length)}`);
  const cutValues = tables.reduce((sum, table) => sum + table.cut, 0);
  byId("keys-found").textContent = [
    ...(state.keys ? [plural(found, "entry")] : []),
    ...(cut ? [`${plural(cut, "entry")} are cut here and cannot be found (${cutTables.join(", ")}): show lists them`] : []),
    ...(cutValues ? [`of ${plural(cutValues, "value")} the end is cut and cannot be found`] : []),
  ].join("; ");
}

function showTables() {
  const byRoot = new Map();
  for (const table of tables) {
    byRoot.set(table.root, [...(byRoot.get(table.root) || []), table]);
  }
  const untouched = [];
  for (const [root, its] of [...byRoot].sort(([a], [b]) => (b === "switch") - (a === "switch"))) {
    const filled = its.filter((table) => table.size > 0);
    const emptied = its.filter((table) => table.size === 0 && columnTouched(table));
    untouched.push(...its.filter((table) => table.size === 0 && !columnTouched(table)));
    if (!filled.length && !emptied.length) {
      continue;
    }
    const part = make("div", {}, make("h3", {}, objectLink(root, root), " ", make("small", {}, data.roots.find((each) => each.name === root).type)));
    for (const table of filled) {
      table.details = make("details", { class: "panel" }, make("summary", {}, `${table.name} `, table.count), table.place);
      table.details.addEventListener("toggle", () => table.details.open && fillTable(table));
      part.append(table.details);
    }
    if (emptied.length) {
      part.append(make("p", { class: "hint" }, `empty again: ${emptied.map((table) => table.name).join(", ")}`));
    }
    byId("table-list").append(part);
  }
  if (untouched.length) {
    byId("table-list").append(make("details", { id: "empty-tables" },
      make("summary", {}, `${plural(untouched.length, "table")} that stayed empty`),
      make("p", { class: "note" }, untouched.map(({ root, name }) => `${root}.${name}`).join(", "))));
  }
}

// --- All of it

// The slider's place is that of the line and the time that it stands at, or the end.
function sampleOfState() {
  const step = stepOf(state.line, sources[0]);
  if (Number.isNaN(step)) {
    return lastSample;
  }
  const at = data.samples.findLastIndex((sample) => sample.step < step || (sample.step === step && (!state.time || sample.time <= Number(state.time))));
  return Math.max(0, at);
}

function momentIs(at) {
  const { step, time } = data.samples[at];
  const isOnly = data.samples.filter((sample) => sample.step === step).length === 1;
  stateIs(at === lastSample ? { line: "", time: "" } : { line: placeNumber(step), time: isOnly ? "" : String(time) });
}

function drawGraph() {
  const held = data.roots.findIndex((root) => root.name === state.root);
  const all = state.untouched === "shown" || (held >= 0 && isUntouched(held));
  // What is drawn keeps the focus.
  if (graph.all !== all) {
    graph.all = all;
    showGraph(all);
    drawMoment();
  }
  hold(held >= 0 ? held : null);
}

function drawMoment() {
  byId("moment").value = sampleOfState();
  showMoment(sampleOfState());
}

drawers.push(
  [["axis"], () => showLanes(state.axis === "steps" ? "steps" : "times")],
  [["root", "untouched"], drawGraph],
  [["line", "time"], drawMoment],
  [["kind", "search", "from", "to", "object", "traces"], showFilters],
  [["keys"], searchTables]);

const [linesCount, , refusals, failures] = data.happened;
byId("moment").max = lastSample;
showHead(data.title, data.verdict, !/^(no expectation|all )/.test(data.verdict), [
  ["lines", number(linesCount)],
  ["calls of hardware", number(data.calls)],
  ["failures", number(failures), failures > 0],
  [`seconds, ${data.clock}`, seconds(data.end - data.start)],
], refusals ? plural(refusals, "planned refusal") : "");
findTouched();
showKinds();
showTables();
Object.assign(state, stateOfFragment());
drawState(null);
if (state.object) {
  byId("events").scrollIntoView();
}

byId("moment").addEventListener("input", (event) => momentIs(Number(event.target.value)));
byId("untouched").addEventListener("click", () => stateIs({ untouched: state.untouched === "shown" ? "hidden" : "shown" }));
byId("keys").addEventListener("input", (event) => stateIs({ keys: event.target.value }));
for (const [id, axis] of [["by-time", "times"], ["by-line", "steps"]]) {
  byId(id).addEventListener("click", () => stateIs({ axis }));
}
addEventListener("hashchange", () => {
  const before = { ...state };
  Object.assign(state, stateOfFragment());
  drawState(before);
});
addEventListener("resize", () => {
  layGraph();
  showLanes(lanes.axis);
});

document.documentElement.dataset.milliseconds = Math.round(performance.now());
document.documentElement.dataset.drawn =
  [graph.nodes.size, graph.edges.length, byId("list").rows.length - 1, document.querySelectorAll("#table-list details.panel").length].join(" ");
