// --- Events

const kinds = ["line", "call", "refusal", "failure", "comment", "trace"];
const kindNames = ["lines", "calls", "refusals", "failures", "comments", "traces"];
// What the choices show.
const choices = {
  failure: { name: "failures", of: [3] }, refusal: { name: "refusals", of: [2] }, call: { name: "calls", of: [1, 2] },
  line: { name: "lines", of: [0, 4] }, trace: { name: "traces", of: [5] }, all: { name: "all", of: [0, 1, 2, 3, 4, 5] },
};
const lowerTexts = data.events.text.map((text) => text.toLowerCase());
const rowsAtOnce = 200;
const longText = 240;
const list = { limit: rowsAtOnce, unfolded: new Set() };

// The events that the state asks for, in order.
function foundEvents() {
  const { what, step, text } = data.events;
  const wanted = new Set((choices[state.kind] || choices.all).of);
  const words = state.search.toLowerCase().split(/\s+/).filter(Boolean);
  const isNamed = namer(state.object);
  const [from, to] = limits();
  return what.flatMap((kind, i) => wanted.has(kind) && !(step[i] < from) && !(step[i] > to) &&
    words.every((word) => lowerTexts[i].includes(word)) && isNamed(text[i]) ? [i] : []);
}

const limits = () => [state.from && stepOf(state.from, sources[0]), state.to && stepOf(state.to, sources[sources.length - 1])]
  .map((step) => step === "" ? undefined : step);

// Traces that follow each other are one, as long as they are folded.
function rowsOf(found) {
  const rows = [];
  const folds = state.kind !== "trace";
  for (const i of found) {
    const last = rows[rows.length - 1];
    if (folds && data.events.what[i] === 5 && last?.traces && data.events.step[i] === data.events.step[last.traces[0]]) {
      last.traces.push(i);
    } else {
      rows.push(folds && data.events.what[i] === 5 ? { traces: [i] } : { event: i });
    }
  }
  return rows.flatMap((row) => !row.traces ? [row]
    : state.traces === "open" || list.unfolded.has(row.traces[0]) ? [...(state.traces === "open" ? [] : [row]), ...row.traces.map((event) => ({ event }))]
    : [row]);
}

function textCell(text, words) {
  if (text.length <= longText || words.some((word) => text.toLowerCase().includes(word, longText - word.length))) {
    return make("td", { class: "text" }, ...linked(text));
  }
  const more = make("button", { type: "button", class: "fold" }, `${number(text.length - longText)} more characters`);
  const cell = make("td", { class: "text" }, ...linked(text.slice(0, longText)), "... ", more);
  more.addEventListener("click", () => cell.replaceChildren(...linked(text)));
  return cell;
}

function eventRow(i, kind, cell) {
  const step = data.events.step[i];
  return make("tr", { class: `kind${data.events.what[i]}` },
              make("td", { class: "place", title: placeOf(step, "name") }, step ? placeText(step) : ""),
              make("td", { class: "number" }, seconds(data.events.time[i])),
              make("td", { class: "kind" }, make("span", {}, kind)), cell);
}

function foldRow(traces) {
  const [first] = traces;
  const isOpen = list.unfolded.has(first);
  const button = make("button", { type: "button", class: "fold", "aria-expanded": String(isOpen) },
                      `${isOpen ? "fold" : "unfold"} ${plural(traces.length, "trace")}`);
  button.addEventListener("click", () => {
    list.unfolded[isOpen ? "delete" : "add"](first);
    showEvents();
  });
  return eventRow(first, "trace", make("td", { class: "text" }, button));
}

const listed = (counts) => counts.flatMap((count, kind) => count ? [plural(count, kinds[kind])] : []).join(", ");

function showEvents() {
  const found = foundEvents();
  const rows = rowsOf(found);
  const words = state.search.toLowerCase().split(/\s+/).filter(Boolean);
  byId("list").tBodies[0].replaceChildren(...rows.slice(0, list.limit).map(({ event, traces }) =>
    traces ? foldRow(traces) : eventRow(event, kinds[data.events.what[event]], textCell(data.events.text[event], words))));
  const [from, to] = limits();
  const unread = [[from, state.from], [to, state.to]].filter(([step]) => Number.isNaN(step)).map(([, text]) => text);
  const cut = data.leftOut.reduce((a, b) => a + b);
  byId("found").textContent = [
    `${number(found.length)} of ${number(data.events.what.length)} events`,
    ...unread.map((text) => `; expected LINE or FILE:LINE of this session, found '${text}'`),
    cut ? `; ${listed(data.leftOut)} of the run are cut here and cannot be found, though counted above: --record FILE keeps lines and calls, --ring FILE traces` : "",
    data.textsCut ? `; of ${plural(data.textsCut, "text")} only the first ${longText} characters can be found` : "",
  ].join("");
  byId("more").hidden = rows.length <= list.limit;
  byId("more").textContent = `Show ${number(Math.min(rowsAtOnce, rows.length - list.limit))} more of ${number(rows.length - list.limit)}`;
}

function showFilters() {
  for (const button of byId("kinds").children) {
    button.setAttribute("aria-pressed", String(button.dataset.kind === state.kind));
  }
  for (const name of ["search", "from", "to"]) {
    if (byId(name).value !== state[name]) {
      byId(name).value = state[name];
    }
  }
  byId("object").hidden = !state.object;
  byId("object-name").textContent = state.object;
  byId("traces").setAttribute("aria-pressed", String(state.traces === "open"));
  list.limit = rowsAtOnce;
  list.unfolded.clear();
  showEvents();
}

function showKinds() {
  for (const [kind, { name, of }] of Object.entries(choices)) {
    const count = of.reduce((sum, each) => sum + data.happened[each], 0);
    if (count || kind === "failure") {
      const button = make("button", { type: "button", "data-kind": kind }, `${name} ${number(count)}`);
      button.addEventListener("click", () => stateIs({ kind }));
      byId("kinds").append(button);
    }
  }
  byId("traces").hidden = !data.happened[5];
  for (const name of ["search", "from", "to"]) {
    byId(name).addEventListener("input", (event) => stateIs({ [name]: event.target.value }));
  }
  byId("clear").addEventListener("click", () => stateIs({ from: "", to: "", search: "" }));
  byId("traces").addEventListener("click", () => stateIs({ traces: state.traces === "open" ? "folded" : "open" }));
  byId("object-close").addEventListener("click", () => stateIs({ object: "", kind: defaults.kind }, true));
  byId("more").addEventListener("click", () => {
    list.limit += rowsAtOnce;
    showEvents();
  });
}

