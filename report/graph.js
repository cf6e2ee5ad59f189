// --- Machines and entities

const columnOf = { input: 0, machine: 1, output: 2, hardware: 3 };
const columnTitles = ["inputs", "machines", "outputs", "hardware"];
const row = 50;
const top0 = 22;

// What has had no member and was changed by no line.
const touched = new Set(data.samples.flatMap(({ counts }) => counts.filter((_, i) => i % 2 === 0 && counts[i + 1] > 0)));
const touchedRoots = new Set([...touched].map((column) => data.columns[column].root));
// What cannot have members is shown beside who refers to it.
const hasColumns = new Set(data.columns.map(({ root }) => root));
const isUntouched = (index) => !touchedRoots.has(index) && (hasColumns.has(index) ||
  !data.roots.some(({ reads, writes }, i) => touchedRoots.has(i) && (reads.includes(index) || writes.includes(index))));

function findTouched() {
  const indexOf = new Map(data.roots.map((root, index) => [root.name, index]));
  data.events.text.forEach((text, i) => {
    const [, name] = (data.events.what[i] === 0 && /^(?:set|del|call)\s+(\w+)/.exec(text)) || [];
    if (indexOf.has(name)) {
      touchedRoots.add(indexOf.get(name));
    }
  });
}

// The nodes, in their columns, ordered so that edges cross little.
function arrange(all) {
  const nodes = data.roots.map((root, index) => ({ root, index }))
    .filter(({ root, index }) => root.role in columnOf && (all || !isUntouched(index)));
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

const graph = { counts: [], nodes: new Map(), edges: [], columns: 1, all: null, chosen: null, held: null };
const shownRoots = data.roots.flatMap((root, index) => root.role in columnOf ? [index] : []);

function showGraph(all) {
  const columns = arrange(all).filter((column) => column.length);
  graph.columns = Math.max(1, columns.length);
  byId("graph").style.minWidth = `${graph.columns * 295}px`;
  const rows = Math.max(1, ...columns.map((column) => column.length));
  byId("graph").replaceChildren(byId("edges"));
  graph.nodes.clear();
  byId("graph").style.height = `${top0 + rows * row}px`;
  columns.forEach((column, at) => {
    const title = make("h3", {}, columnTitles[columnOf[column[0].root.role]]);
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
        stateIs({ root: graph.held === node.index ? "" : node.root.name });
      });
      byId("graph").append(element);
      graph.nodes.set(node.index, { ...node, element, counts, title, column: at, y: top0 + (rows - column.length) * row / 2 + i * row });
    });
  });
  graph.edges = edges([...graph.nodes.values()]).map((edge) => ({ ...edge, path: draw("path", { class: edge.kind }) }));
  byId("edges").replaceChildren(...graph.edges.map((edge) => edge.path));
  choose(null);
  layGraph();
  const untouched = shownRoots.filter(isUntouched);
  byId("untouched").hidden = !untouched.length;
  byId("untouched").textContent = `${all ? "Hide" : "Show"} ${plural(untouched.length, "machine or entity").replace("machine or entities", "machines and entities")} ` +
    "that no line changed and that stayed empty";
  byId("untouched").setAttribute("aria-expanded", String(Boolean(all)));
}

// Holds it; null for none.
function hold(index) {
  graph.held = index;
  choose(index);
}

function layGraph() {
  const width = byId("graph").clientWidth - 24;
  const nodeWidth = Math.min(270, Math.floor(width / (graph.columns + 0.9)));
  const step = (width - nodeWidth) / Math.max(1, graph.columns - 1);
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
  const lines = [make("p", {}, make("b", {}, root.name), ` ${root.type} `, objectLink(root.name, "its events"))];
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

const lastSample = data.samples.length - 1;

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
  const last = at === lastSample;
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
    : `after ${placeText(step)}, ${seconds(time)} s: ${lineText(step)}`;
  showDetail(graph.chosen);
  placeNow(data.samples[at]);
}

