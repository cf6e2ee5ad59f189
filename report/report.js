const kinds = ["line", "call", "failure"];
const kindNames = ["lines", "calls", "failures"];

// --- Machines and entities

const columnOf = { input: 0, machine: 1, output: 2, hardware: 3 };
const columnTitles = ["inputs", "machines", "outputs", "hardware"];
const row = 50;
const top0 = 22;

// The nodes, in their columns, ordered so that edges cross little.
function arrange() {
  const nodes = data.roots.map((root, index) => ({ root, index })).filter(({ root }) => root.role in columnOf);
  const columns = columnTitles.map((_, column) => nodes.filter(({ root }) => columnOf[root.role] === column));
  const neighbours = new Map(nodes.map((node) => [node.index, []]));
  for (const edge of edges(nodes)) {
    neighbours.get(edge.from).push(edge.to);
    neighbours.get(edge.to).push(edge.from);
  }
  const place = new Map();
  const number = (column) => column.forEach((node, i) => place.set(node.index, (i + 0.5) / column.length));
  columns.forEach(number);
  for (let sweep = 0; sweep < 12; ++sweep) {
    for (const column of sweep % 2 ? [...columns].reverse() : columns) {
      const wanted = new Map(column.map((node) => {
        const at = neighbours.get(node.index).map((other) => place.get(other));
        return [node, at.length ? at.reduce((sum, each) => sum + each, 0) / at.length : place.get(node.index)];
      }));
      column.sort((a, b) => wanted.get(a) - wanted.get(b));
      number(column);
    }
  }
  return columns;
}

// From who is read to who reads it, and from who writes to what it writes.
function edges(nodes) {
  const shown = new Set(nodes.map((node) => node.index));
  const all = [];
  for (const { root, index } of nodes) {
    for (const target of root.reads.filter((each) => shown.has(each))) {
      all.push({ from: target, to: index, of: index, kind: "reads" });
    }
    for (const target of root.writes.filter((each) => shown.has(each))) {
      all.push({ from: index, to: target, of: index, kind: "writes" });
    }
  }
  return all;
}

const graph = { counts: [], nodes: new Map(), edges: [], chosen: null, held: null };

function showGraph() {
  const columns = arrange();
  const rows = Math.max(...columns.map((column) => column.length));
  byId("graph").style.height = `${top0 + rows * row}px`;
  columns.forEach((column, at) => {
    const title = make("h3", {}, columnTitles[at]);
    byId("graph").append(title);
    column.forEach((node, i) => {
      const name = make("b", {}, node.root.name);
      const counts = make("span", {});
      const element = make("button", { type: "button", class: `node ${node.root.role}`, "aria-pressed": "false" }, name, counts);
      element.addEventListener("pointerenter", () => choose(node.index));
      element.addEventListener("pointerleave", () => choose(graph.held));
      element.addEventListener("focus", () => choose(node.index));
      element.addEventListener("blur", () => choose(graph.held));
      element.addEventListener("click", () => {
        graph.held = graph.held === node.index ? null : node.index;
        choose(node.index);
      });
      byId("graph").append(element);
      graph.nodes.set(node.index, { ...node, element, counts, title, column: at, y: top0 + (rows - column.length) * row / 2 + i * row });
    });
  });
  graph.edges = edges([...graph.nodes.values()]).map((edge) => ({ ...edge, path: draw("path", { class: edge.kind }) }));
  byId("edges").append(...graph.edges.map((edge) => edge.path));
  layGraph();
  choose(null);
}

function layGraph() {
  const width = byId("graph").clientWidth - 24;
  const nodeWidth = Math.min(270, Math.floor(width / 4.9));
  const step = (width - nodeWidth) / 3;
  const left = (node) => Math.round(node.column * step);
  for (const node of graph.nodes.values()) {
    node.element.style.cssText = `left:${left(node)}px;top:${node.y}px;width:${nodeWidth}px`;
    node.title.style.cssText = `left:${left(node)}px;top:0`;
  }
  for (const { from, to, path } of graph.edges) {
    const [a, b] = [graph.nodes.get(from), graph.nodes.get(to)];
    const [ya, yb] = [a.y + 21, b.y + 21];
    if (a.column === b.column) {
      const x = left(a) + nodeWidth;
      path.setAttribute("d", `M${x},${ya} C${x + 26},${ya} ${x + 26},${yb} ${x},${yb}`);
      continue;
    }
    const forward = a.column < b.column;
    const xa = left(a) + (forward ? nodeWidth : 0);
    const xb = left(b) + (forward ? 0 : nodeWidth);
    const bend = (xb - xa) * 0.45;
    path.setAttribute("d", `M${xa},${ya} C${xa + bend},${ya} ${xb - bend},${yb} ${xb},${yb}`);
  }
}

const membersOf = (index) => data.columns
  .map((column, i) => ({ ...column, count: graph.counts[i] }))
  .filter((column) => column.root === index);

function choose(index) {
  graph.chosen = index;
  const on = new Set([index]);
  for (const { from, to, path } of graph.edges) {
    const touches = index !== null && (from === index || to === index);
    path.classList.toggle("on", touches);
    if (touches) {
      on.add(from).add(to);
    }
  }
  for (const [at, node] of graph.nodes) {
    node.element.classList.toggle("on", on.has(at));
    node.element.setAttribute("aria-pressed", String(at === graph.held));
  }
  byId("graph").classList.toggle("chosen", index !== null);
  showDetail(index);
}

function showDetail(index) {
  if (index === null) {
    byId("detail").replaceChildren(make("p", {}, make("em", {},
      "Point at a machine or an entity, or move to it with the tab key, to see what reads and writes it; a click holds it.")));
    return;
  }
  const root = data.roots[index];
  const names = (indexes) => indexes.map((each) => data.roots[each].name).join(", ") || "nothing";
  const users = (kind) => data.roots.flatMap((each, i) => each[kind].includes(index) ? [i] : []);
  const lines = [make("p", {}, make("b", {}, root.name), ` ${root.type}`)];
  const add = (label, indexes) => {
    if (indexes.length) {
      lines.push(make("p", {}, make("em", {}, `${label} `), names(indexes)));
    }
  };
  add("reads", root.reads);
  add("writes", root.writes);
  add("read by", users("reads"));
  add("written by", users("writes"));
  const members = membersOf(index);
  if (members.length) {
    lines.push(make("p", {}, make("em", {}, "members "),
                    members.map(({ name, count }) => `${name} ${number(count)}`).join(", ")));
  }
  byId("detail").replaceChildren(...lines);
}

// The counts as they were at a sample.
function showMoment(at) {
  const counts = new Array(data.columns.length).fill(0);
  const changed = new Set();
  data.samples.slice(0, at + 1).forEach((sample, i) => {
    for (let k = 0; k < sample.counts.length; k += 2) {
      counts[sample.counts[k]] = sample.counts[k + 1];
      if (i === at) {
        changed.add(data.columns[sample.counts[k]].root);
      }
    }
  });
  graph.counts = counts;
  const last = at === data.samples.length - 1;
  for (const [index, node] of graph.nodes) {
    const members = membersOf(index);
    const some = members.filter(({ count }) => count > 0);
    node.counts.textContent = some.length ? some.map(({ name, count }) => `${name} ${number(count)}`).join(", ")
                                          : members.length ? "empty" : "no members";
    node.element.title = node.counts.textContent;
    node.element.classList.toggle("changed", changed.has(index) && !last);
  }
  const { step, time } = data.samples[at];
  byId("moment-text").textContent = last ? `at the end, ${seconds(time)} s`
    : step === 0 ? "before the first line"
    : `after line ${number(step)}, ${seconds(time)} s: ${lineText(step)}`;
  showDetail(graph.chosen);
  placeNow(data.samples[at]);
}

const lineTexts = new Map();
data.events.what.forEach((what, i) => {
  if (what === 0) {
    lineTexts.set(data.events.step[i], data.events.text[i]);
  }
});
const lineText = (step) => lineTexts.get(step) || "";

// --- Time line

const lanes = { axis: "times", now: null };
const laneHeight = 46;

function axisTicks(from, to) {
  const rough = (to - from) / 8 || 1;
  const power = 10 ** Math.floor(Math.log10(rough));
  const step = [1, 2, 5, 10].map((each) => each * power).find((each) => each >= rough);
  const ticks = [];
  for (let at = Math.ceil(from / step) * step; at <= to + step * 1e-9; at += step) {
    ticks.push(Number(at.toPrecision(12)));
  }
  return lanes.axis === "steps" ? ticks.filter(Number.isInteger) : ticks;
}

function showLanes() {
  const { origin, width, bins } = data[lanes.axis];
  const steps = lanes.axis === "steps";
  const whole = Math.max(byId("lanes").clientWidth - 22, 320);
  const [x0, x1] = [140, whole - 8];
  const height = 3 * laneHeight + 24;
  const from = steps ? Math.min(1, bins.length) : origin;
  const first = steps && width === 1 ? 1 : 0;
  const span = Math.max((bins.length - first) * width, width);
  const start = origin + first * width;
  const x = (value) => x0 + (value - start) / span * (x1 - x0);
  const svg = draw("svg", { viewBox: `0 0 ${whole} ${height}`, height, role: "img",
                            "aria-label": `lines, calls of hardware and failures ${steps ? "by line" : "over simulated time"}` });
  for (const tick of axisTicks(Math.max(start, from), start + span)) {
    const at = x(tick + (steps ? width * 0.5 * (width === 1) : 0));
    const label = steps ? number(tick) : `${seconds(tick)} s`;
    const anchor = at > x1 - 24 ? "end" : at < x0 + 8 ? "start" : "middle";
    if (at <= x1 + 1) {
      svg.append(draw("line", { class: "grid", x1: at, x2: at, y1: 0, y2: height - 20 }),
                 draw("text", { x: at, y: height - 5, "text-anchor": anchor }, label));
    }
  }
  kindNames.forEach((name, kind) => {
    const base = (kind + 1) * laneHeight;
    const most = Math.max(1, ...bins.map((bin) => bin[kind]));
    svg.append(draw("line", { class: "base", x1: x0, x2: x1, y1: base, y2: base }),
               draw("text", { class: "lane", x: 0, y: base - 20 }, name),
               draw("text", { x: 0, y: base - 6 }, `${number(data.happened[kind])}, most ${number(most)}`));
    bins.forEach((bin, i) => {
      if (bin[kind]) {
        const h = Math.max(3, bin[kind] / most * (laneHeight - 8));
        const left = x(origin + i * width);
        svg.append(draw("rect", { class: `fill${kind}`, x: left, y: base - h, height: h,
                                  width: Math.max(1.5, Math.min(14, x(origin + (i + 1) * width) - left - 0.6)) }));
      }
    });
  });
  bins.forEach((bin, i) => {
    if (bin.some((count) => count)) {
      const left = x(origin + i * width);
      const hit = draw("rect", { class: "hit", x: left - 1, y: 0, height: height - 20,
                                 width: Math.max(5, x(origin + (i + 1) * width) - left) });
      hit.append(draw("title", {}, bin.map((count, kind) => `${number(count)} ${kindNames[kind]}`).join(", ")));
      hit.addEventListener("click", () => chooseSpan(origin + i * width, origin + (i + 1) * width));
      svg.append(hit);
    }
  });
  lanes.now = draw("line", { class: "now", y1: 0, y2: height - 20 });
  lanes.x = (sample) => x(steps ? sample.step + 0.5 * (width === 1) : sample.time);
  svg.append(lanes.now);
  byId("lanes").replaceChildren(svg);
  byId("by-time").setAttribute("aria-pressed", String(!steps));
  byId("by-line").setAttribute("aria-pressed", String(steps));
  placeNow(data.samples[byId("moment").value]);
}

function placeNow(sample) {
  if (lanes.now) {
    lanes.now.setAttribute("x1", lanes.x(sample));
    lanes.now.setAttribute("x2", lanes.x(sample));
  }
}

// Shows the events of a column, whose lines are looked up when it is one of time.
function chooseSpan(from, to) {
  const value = data.events[lanes.axis === "steps" ? "step" : "time"];
  const steps = data.events.step.filter((_, i) => value[i] >= from && value[i] < to);
  byId("from").value = lanes.axis === "steps" ? Math.ceil(from) : steps[0] ?? "";
  byId("to").value = lanes.axis === "steps" ? Math.ceil(to) - 1 : steps[steps.length - 1] ?? "";
  setKind("all");
  byId("events").scrollIntoView();
}

// --- Events

const rowsAtOnce = 200;
const list = { kind: "failure", limit: rowsAtOnce };

function setKind(kind) {
  list.kind = kind;
  list.limit = rowsAtOnce;
  for (const button of byId("kinds").children) {
    button.setAttribute("aria-pressed", String(button.dataset.kind === kind));
  }
  showEvents();
}

function showEvents() {
  const { what, step, time, text } = data.events;
  const wanted = kinds.indexOf(list.kind);
  const words = byId("search").value.toLowerCase().split(/\s+/).filter(Boolean);
  const [from, to] = [byId("from").value, byId("to").value];
  const rows = [];
  let found = 0;
  for (let i = 0; i < what.length; ++i) {
    if ((wanted >= 0 && what[i] !== wanted) || (from && step[i] < from) || (to && step[i] > to) ||
        !words.every((word) => text[i].toLowerCase().includes(word))) {
      continue;
    }
    if (++found <= list.limit) {
      rows.push(make("tr", { class: `kind${what[i]}` },
                     make("td", { class: "number" }, number(step[i])),
                     make("td", { class: "number" }, seconds(time[i])),
                     make("td", { class: "kind" }, kinds[what[i]]),
                     make("td", { class: "text" }, text[i])));
    }
  }
  byId("list").tBodies[0].replaceChildren(...rows);
  const left = data.leftOut[0] + data.leftOut[1];
  byId("found").textContent = `${number(found)} of ${number(what.length)} events` +
    (left + data.leftOut[2] ? `; ${number(left)} more lines and calls and ${number(data.leftOut[2])} more failures of the run are counted above and not listed` : "");
  byId("more").hidden = found <= list.limit;
  byId("more").textContent = `Show ${number(Math.min(rowsAtOnce, found - list.limit))} more of ${number(found - list.limit)}`;
}

function showKinds() {
  const choices = [["failure", "failures", data.happened[2]], ["call", "calls", data.happened[1]],
                   ["line", "lines", data.happened[0]], ["all", "all", data.happened.reduce((a, b) => a + b)]];
  for (const [kind, name, count] of choices) {
    const button = make("button", { type: "button", "data-kind": kind }, `${name} ${number(count)}`);
    button.addEventListener("click", () => setKind(kind));
    byId("kinds").append(button);
  }
}

// --- Tables

const openRows = 25;

function fillTable(table, place) {
  const word = byId("keys").value.toLowerCase();
  const rows = table.rows.filter(([key]) => key.toLowerCase().includes(word));
  const parts = [];
  if (rows.length) {
    const values = rows.some(([, value]) => value);
    const element = make("table", {}, make("thead", {}, make("tr", {}, make("th", {}, table.key),
                                                             ...(values ? [make("th", {}, table.value)] : []))));
    const body = make("tbody");
    for (const [key, value] of rows) {
      body.append(make("tr", {}, make("td", { class: "text" }, key), ...(values ? [make("td", { class: "text" }, value)] : [])));
    }
    element.append(body);
    parts.push(element);
  } else {
    parts.push(make("p", { class: "note" }, "No key contains this."));
  }
  if (table.size > table.rows.length) {
    parts.push(make("p", { class: "note" },
                    `${number(table.rows.length)} of ${number(table.size)} entries; ${number(table.size - table.rows.length)} are left out.`));
  }
  place.replaceChildren(...parts);
}

function showTables() {
  const roots = new Map();
  for (const table of data.tables) {
    roots.set(table.root, [...(roots.get(table.root) || []), table]);
  }
  for (const [root, tables] of [...roots].sort(([a], [b]) => (b === "switch") - (a === "switch"))) {
    const filled = tables.filter((table) => table.size > 0);
    const empty = tables.filter((table) => table.size === 0).map((table) => table.name);
    const part = make("div", {}, make("h3", {}, `${root} `, make("small", {}, data.roots.find((each) => each.name === root).type)));
    for (const table of filled) {
      const place = make("div", { class: "rows" });
      const details = make("details", { class: "panel" },
                           make("summary", {}, `${table.name} `, make("small", {}, `${number(table.size)} ${table.size === 1 ? "entry" : "entries"}`)), place);
      details.addEventListener("toggle", () => details.open && fillTable(table, place));
      if (table.size <= openRows) {
        details.open = true;
        fillTable(table, place);
      }
      byId("keys").addEventListener("input", () => details.open && fillTable(table, place));
      part.append(details);
    }
    if (empty.length) {
      part.append(make("p", { class: "hint" }, `${filled.length ? "empty: " : "empty"}${filled.length ? empty.join(", ") : ""}`));
    }
    byId("table-list").append(part);
  }
}

// --- All of it

byId("moment").max = data.samples.length - 1;
byId("moment").value = data.samples.length - 1;
lanes.axis = data.times.bins.filter((bin) => bin.some((count) => count)).length > 2 ? "times" : "steps";
showHead(data.title, data.verdict, !/^(no expectation|all )/.test(data.verdict), [
  ["lines", number(data.happened[0])],
  ["calls of hardware", number(data.happened[1] + data.happened[2] - data.troubles)],
  ["failures", number(data.happened[2]), data.happened[2] > 0],
  [`seconds, ${data.clock}`, seconds(data.end - data.start)],
]);
showGraph();
showMoment(data.samples.length - 1);
showLanes();
showKinds();
setKind(data.happened[2] ? "failure" : "all");
showTables();

byId("moment").addEventListener("input", (event) => showMoment(Number(event.target.value)));
for (const [id, axis] of [["by-time", "times"], ["by-line", "steps"]]) {
  byId(id).addEventListener("click", () => {
    lanes.axis = axis;
    showLanes();
  });
}
for (const id of ["search", "from", "to"]) {
  byId(id).addEventListener("input", () => {
    list.limit = rowsAtOnce;
    showEvents();
  });
}
byId("clear").addEventListener("click", () => {
  byId("from").value = byId("to").value = byId("search").value = "";
  showEvents();
});
byId("more").addEventListener("click", () => {
  list.limit += rowsAtOnce;
  showEvents();
});
addEventListener("resize", () => {
  layGraph();
  showLanes();
});

document.documentElement.dataset.milliseconds = Math.round(performance.now());
document.documentElement.dataset.drawn =
  [graph.nodes.size, graph.edges.length, byId("list").rows.length - 1, document.querySelectorAll("details").length].join(" ");
