// A frame's copies are numbered hop by hop, from 1.

const hops = data.hops || [];
const nodeName = (node) => data.nodes[node].name;
const segmentName = (segment) => data.segments[segment].name;

// --- Copies, and what is not made

// Of a copy: its number, the hop that makes it, the copy that this hop has it from, and the copies
// that come of it.
const copies = [];
const stops = [];

function collect() {
  const comesOf = new Map();
  hops.forEach((hop, at) => {
    hop.copies.forEach((text, i) => {
      const target = hop.targets[i];
      const copy = { number: copies.length + 1, at, hop, text, target, parent: comesOf.get(at) || null };
      copies.push(copy);
      if (target.hop !== undefined) {
        comesOf.set(target.hop, copy);
      }
    });
    hop.stops.forEach((stop, i) => stops.push({ at, hop, stop, place: hop.stopPlaces[i] }));
  });
}

const targetText = ({ node, segment }) =>
  node !== undefined ? nodeName(node) : segment !== undefined && segment !== null ? segmentName(segment) : "nowhere";
const fateText = ({ target }) => target.fate || `goes on at ${nodeName(target.node)}`;
// What of a copy's text the picture does not show as a line.
const shortText = (text) => text.replace(/^tunnel \d+ /, "");

// --- Layout
//
// From left to right: tunnels as arcs, what comes over them, switches, links, what passes these, and
// segments. What has a text has rows of its own, so that no text is on another.

const row = 18;
const box = 40;
const gap = 12;
const top0 = 26;
const column = { arcs: 150, lane: 170, node: 112, slot: 286, segment: 220 };

// Of the interface in a link's row.
const nameWidth = 92;

const picture = { nodes: [], segments: [], x: {}, height: 0, copies: new Map(), chosen: 0 };

const slotOf = (segment, node) => picture.segments[segment].slots.find((slot) => slot.node === node);

// Rows below each other where each is as high as it must be, spread over the height if that is more.
function stack(items, height) {
  const needed = items.reduce((sum, each) => sum + each.height, 0) + gap * items.length;
  const extra = Math.max(0, height - needed) / Math.max(1, items.length);
  let y = top0;
  for (const each of items) {
    each.y = y + (each.height + gap + extra) / 2;
    y += each.height + gap + extra;
  }
  return needed;
}

function layOut() {
  picture.nodes = data.nodes.map((node, index) => ({ index, node, entries: [] }));
  picture.segments = data.segments.map((segment, index) => ({
    index, segment, slots: segment.links.map((link) => ({ ...link, entries: [] })),
  }));
  if (data.frame) {
    const segment = data.hosts[data.frame.host].segment;
    slotOf(segment, data.frame.node).entries.push({ sender: true, text: hops[0].in });
  }
  for (const copy of copies) {
    const { node, segment } = copy.target;
    const entries = node !== undefined ? picture.nodes[node].entries
      : segment !== undefined && segment !== null ? slotOf(segment, copy.hop.node).entries : [];
    entries.push({ copy, text: shortText(copy.text) });
  }
  for (const each of stops) {
    const { node, segment } = each.place;
    const entries = node !== undefined ? picture.nodes[node].entries
      : segment !== undefined ? slotOf(segment, each.hop.node).entries : [];
    entries.push({ stop: each, text: `× ${each.stop.reason}` });
  }
  for (const { slots } of picture.segments) {
    for (const slot of slots) {
      const down = slot.ports.filter((port) => !port.up).map((port) => port.name);
      slot.isDown = down.length === slot.ports.length;
      if (down.length) {
        slot.entries.push({ note: true, text: slot.isDown ? "down" : `${down.join(", ")} down` });
      }
    }
  }
  for (const each of picture.nodes) {
    each.height = Math.max(box, row * each.entries.length + 6);
  }
  for (const each of picture.segments) {
    for (const slot of each.slots) {
      slot.height = row * Math.max(1, slot.entries.length) + 4;
    }
    each.height = Math.max(box, each.slots.reduce((sum, slot) => sum + slot.height, 0));
  }
  const order = picture.segments.map((each) => ({
    each, at: each.slots.reduce((sum, slot) => sum + slot.node, 0) / Math.max(1, each.slots.length),
  }));
  order.sort((a, b) => a.at - b.at || a.each.index - b.each.index);
  const inOrder = order.map(({ each }) => each);
  const height = Math.max(stack(picture.nodes, 0), stack(inOrder, 0));
  stack(picture.nodes, height);
  stack(inOrder, height);
  for (const each of inOrder) {
    each.slots.sort((a, b) => a.node - b.node);
    let y = each.y - each.slots.reduce((sum, slot) => sum + slot.height, 0) / 2;
    for (const slot of each.slots) {
      slot.y = y + slot.height / 2;
      y += slot.height;
    }
  }
  picture.height = top0 + height + gap;
}

// --- Drawing

// A text that is cut to the width, and told in full where it is pointed at.
function label(x, y, width, text, attributes) {
  const element = draw("text", { x, y, ...attributes }, text);
  element.dataset.width = width;
  return element;
}

function fitTexts(svg) {
  for (const element of svg.querySelectorAll("text[data-width]")) {
    const width = Number(element.dataset.width);
    const whole = element.textContent;
    for (let length = whole.length; length > 1 && element.getComputedTextLength() > width;) {
      length = Math.min(length - 1, Math.floor(length * width / element.getComputedTextLength()));
      element.textContent = `${whole.slice(0, Math.max(1, length))}…`;
    }
    if (element.textContent !== whole) {
      element.append(draw("title", {}, whole));
    }
  }
}

// An arc left of the switches.
function arc(from, to, x) {
  const bulge = x - 8 - (column.arcs - 20) * Math.sqrt(Math.abs(to.y - from.y) / picture.height);
  return `M${x},${from.y} C${bulge},${from.y} ${bulge},${to.y} ${x},${to.y}`;
}

function linkPath(node, slot) {
  const { links, slots } = picture.x;
  const bend = (slots - links) * 0.5;
  return `M${links},${picture.nodes[node].y} C${links + bend},${picture.nodes[node].y} ${slots - bend},${slot.y} ${slots},${slot.y}`;
}

const badge = (x, y, text) => [draw("circle", { class: "badge", cx: x, cy: y, r: 8.5 }), draw("text", { x, y }, text)];
const arrow = (x, y, toRight) =>
  draw("path", { class: "head", d: toRight ? `M${x - 8},${y - 5}L${x},${y}L${x - 8},${y + 5}Z` : `M${x + 8},${y - 5}L${x},${y}L${x + 8},${y + 5}Z` });

// What stands in a row, at the places of badge and text, behind the lines that lead there.
function entryGroup(entry, x, y, width, lines) {
  if (entry.note) {
    return label(x - 4, y, width + 14, entry.text, { class: "small" });
  }
  if (entry.stop) {
    const element = draw("g", { class: "stop" }, label(x - 4, y, width + 14, entry.text));
    element.append(draw("title", {}, `${entry.stop.stop.reason} ${entry.stop.stop.entry}`));
    return element;
  }
  const { copy } = entry;
  const group = draw("g", { class: copy ? `copy${copy.target.wrong ? " wrong" : ""}` : "sender" }, ...lines,
                     ...badge(x + 4, y, copy ? copy.number : "in"), label(x + 17, y, width - 12, entry.text));
  if (copy) {
    group.append(draw("title", {}, `copy ${copy.number}: ${copy.text}, ${fateText(copy)}`));
    group.addEventListener("click", () => choose(copy.number));
    picture.copies.set(copy.number, group);
  }
  return group;
}

const rowOf = (place, i) => place.y + (i - (place.entries.length - 1) / 2) * row;

function drawMesh(svg) {
  const x = picture.x.lanes;
  for (const from of picture.nodes) {
    for (const to of picture.nodes.slice(from.index + 1)) {
      svg.append(draw("path", { class: `mesh${from.node.up && to.node.up ? "" : " down"}`, d: arc(from, to, x) }));
    }
    svg.append(draw("path", { class: "mesh", d: `M${x},${from.y}H${picture.x.nodes}` }));
  }
}

function drawLinks(svg) {
  const { slots, segments } = picture.x;
  for (const { slots: all } of picture.segments) {
    for (const slot of all) {
      svg.append(draw("path", { class: `link${slot.isDown ? " down" : ""}`, d: `${linkPath(slot.node, slot)}H${segments}` }),
                 draw("rect", { x: slots + 3, y: slot.y - 7, width: nameWidth, height: 14, style: "fill:var(--panel)" }),
                 label(slots + 6, slot.y, nameWidth - 6, slot.intf, { class: "small" }));
    }
  }
}

function drawEntries(svg) {
  const { lanes, nodes, links, slots, segments } = picture.x;
  const blank = (x, y, width) => draw("rect", { x, y: y - 9, width, height: 18, style: "fill:var(--panel)" });
  for (const to of picture.nodes) {
    to.entries.forEach((entry, i) => {
      const y = rowOf(to, i);
      svg.append(blank(lanes + 6, y, column.lane - 22));
      const d = entry.copy ? arc(picture.nodes[entry.copy.hop.node], { y }, lanes) : "";
      svg.append(entryGroup(entry, lanes + 14, y, column.lane - 34, entry.copy
        ? [draw("path", { class: "hit", d }), draw("path", { class: "way", d }), arrow(lanes + 6, y, true)] : []));
    });
  }
  for (const { slots: all } of picture.segments) {
    for (const slot of all) {
      slot.entries.forEach((entry, i) => {
        const y = rowOf(slot, i);
        const d = linkPath(slot.node, slot);
        const lines = entry.stop || entry.note ? [] : [draw("path", { class: "hit", d }), draw("path", { class: "way", d }),
          entry.sender ? arrow(links, picture.nodes[slot.node].y, false) : arrow(segments, slot.y, true)];
        const x = slots + nameWidth + 3;
        svg.append(blank(x - 1, y, column.slot - nameWidth - 14));
        svg.append(entryGroup(entry, x + 10, y, column.slot - nameWidth - 34, lines));
      });
    }
  }
}

function drawNodes(svg) {
  for (const { node, y } of picture.nodes) {
    const x = picture.x.nodes;
    svg.append(draw("g", { class: node.up ? "" : "down" },
                    draw("rect", { class: "box", x, y: y - box / 2, width: column.node, height: box, rx: 5 }),
                    label(x + 10, node.up ? y : y - 8, column.node - 20, node.name, { class: "name" }),
                    ...(node.up ? [] : [label(x + 10, y + 9, column.node - 20, "has failed", { class: "small" })])));
  }
}

// The sender and the receiver first.
function hostsAt(index) {
  const { host, to } = data.frame || {};
  const names = data.hosts.flatMap((each, i) => each.segment === index && i !== host && i !== to ? [each.name] : []);
  if (to !== undefined && to !== null && data.hosts[to].segment === index) {
    names.unshift(`receiver ${data.hosts[to].name}`);
  }
  if (host !== undefined && data.hosts[host].segment === index) {
    names.unshift(`sender ${data.hosts[host].name}`);
  }
  return names.join(", ") || "no host";
}

function verdictOf({ copies: count, least, most }) {
  if (count === undefined) {
    return ["", false];
  }
  const wrong = count < least || (most !== null && count > most);
  const wanted = least === most ? least : `at most ${most}`;
  return [wrong ? `${plural(count, "copy")}, not ${wanted}` : count ? plural(count, "copy") : "", wrong];
}

function drawSegments(svg) {
  const x = picture.x.segments;
  for (const { index, segment, y, height } of picture.segments) {
    const [text, wrong] = verdictOf(segment);
    svg.append(draw("g", { class: wrong ? "wrong" : "" },
                    draw("rect", { class: "box", x, y: y - height / 2, width: column.segment, height, rx: 5 }),
                    label(x + 10, y - 8, text ? 100 : column.segment - 20, segment.name, { class: "name" }),
                    label(x + column.segment - 10, y - 8, 110, text,
                          { class: wrong ? "wrong" : "small", "text-anchor": "end" }),
                    label(x + 10, y + 9, column.segment - 20, `VLAN ${segment.vlans.join(", ")}: ${hostsAt(index)}`, { class: "small" })));
  }
}

function showPicture() {
  const wide = Math.max(byId("picture").clientWidth, 1080);
  const lanes = column.arcs;
  const nodes = lanes + column.lane;
  const segments = wide - column.segment - 12;
  picture.x = { lanes, nodes, links: nodes + column.node, slots: segments - column.slot, segments };
  picture.copies.clear();
  const svg = draw("svg", { width: wide, height: picture.height, role: "img", "aria-label": "switches, segments and the frame's copies" });
  const titles = [["tunnels", 12], ["switches", nodes], ["links", picture.x.slots + 6], ["segments and hosts", segments]];
  svg.append(...titles.map(([text, x]) => draw("text", { class: "title", x, y: 14 }, text)));
  drawMesh(svg);
  drawLinks(svg);
  drawEntries(svg);
  drawNodes(svg);
  drawSegments(svg);
  byId("picture").replaceChildren(svg);
  fitTexts(svg);
  showChoice();
}

// --- Table

function rowElement(kind, number, hop, isFirst, cells) {
  const [out, to, fate] = cells;
  return make("tr", { class: `${kind}${isFirst ? " hop" : ""}` }, make("td", { class: "number" }, number),
              make("td", {}, isFirst ? nodeName(hop.node) : ""), make("td", { class: "text" }, isFirst ? hop.in : ""),
              make("td", { class: "text" }, out), make("td", {}, to), make("td", { class: "text" }, fate));
}

function showTable() {
  const body = byId("list").tBodies[0];
  hops.forEach((hop, at) => {
    let isFirst = true;
    const add = (...rest) => {
      const element = rowElement(rest[0], rest[1], hop, isFirst, rest.slice(2));
      isFirst = false;
      body.append(element);
      return element;
    };
    for (const copy of copies.filter((each) => each.at === at)) {
      const element = add(copy.target.wrong ? "copy wrong" : "copy", copy.number, copy.text, targetText(copy.target), fateText(copy));
      element.dataset.copy = copy.number;
      element.addEventListener("click", () => choose(copy.number));
    }
    for (const { stop, place } of stops.filter((each) => each.at === at)) {
      const where = place.node === undefined && place.segment === undefined ? "" : targetText(place);
      add("stop", "not", stop.where, where, `${stop.reason}${stop.entry ? ` ${stop.entry}` : ""}`);
    }
    if (isFirst) {
      add("stop", "", "nothing", "", hop.vlan === null ? "of no VLAN" : "");
    }
  });
}

// --- Stepping

// A copy, or 0 for the whole way.
function choose(number) {
  picture.chosen = Math.max(0, Math.min(copies.length, number));
  history.replaceState(null, "", picture.chosen ? `#copy-${picture.chosen}` : "#way");
  showChoice();
}

function chooseByLink() {
  const found = /^#copy-(\d+)$/.exec(location.hash);
  picture.chosen = found && Number(found[1]) <= copies.length ? Number(found[1]) : 0;
  showChoice();
}

function showChoice() {
  const chosen = copies[picture.chosen - 1];
  const on = new Set();
  for (let each = chosen; each; each = each.parent) {
    on.add(each.number);
  }
  byId("picture").classList.toggle("chosen", Boolean(chosen));
  for (const [number, group] of picture.copies) {
    group.classList.toggle("on", on.has(number));
    group.classList.toggle("chosen", number === picture.chosen);
  }
  for (const each of byId("list").querySelectorAll("tr[data-copy]")) {
    each.setAttribute("aria-current", String(Number(each.dataset.copy) === picture.chosen));
  }
  byId("step").textContent = !chosen ? `${plural(copies.length, "copy")}; the arrow keys, or a click, step through them`
    : `copy ${chosen.number} of ${copies.length}: ${nodeName(chosen.hop.node)}, ${chosen.text}, to ${targetText(chosen.target)}: ${fateText(chosen)}`;
  byId("previous").disabled = picture.chosen === 0;
  byId("next").disabled = picture.chosen === copies.length;
}

// --- All of it

function title() {
  if (!data.frame) {
    return `${data.topology}: nothing is sent`;
  }
  const { host, to, vlan } = data.frame;
  const what = to === null ? `a flood of ${data.hosts[host].name}` : `a frame of ${data.hosts[host].name} to ${data.hosts[to].name}`;
  return `${data.topology}: ${what} in VLAN ${vlan}`;
}

collect();
layOut();
showHead(title(), data.wrong || "nothing is wrong", Boolean(data.wrong), [
  ["switches", number(data.nodes.length)],
  ["copies", number(copies.length)],
  ["arrive", number(data.segments.reduce((sum, each) => sum + (each.copies || 0), 0))],
  ["not made", number(stops.length)],
  ["seconds, virtual", seconds(data.time)],
  ["seed", data.seed],
]);
showTable();
showPicture();
chooseByLink();

byId("first").addEventListener("click", () => choose(0));
byId("previous").addEventListener("click", () => choose(picture.chosen - 1));
byId("next").addEventListener("click", () => choose(picture.chosen + 1));
addEventListener("keydown", (event) => {
  const to = { ArrowLeft: picture.chosen - 1, ArrowRight: picture.chosen + 1, Home: 0, End: copies.length }[event.key];
  if (to !== undefined && !event.altKey && !event.ctrlKey && !event.metaKey) {
    event.preventDefault();
    choose(to);
  }
});
addEventListener("hashchange", chooseByLink);
addEventListener("resize", showPicture);

document.documentElement.dataset.drawn = [data.nodes.length, data.segments.length, picture.copies.size, stops.length].join(" ");
