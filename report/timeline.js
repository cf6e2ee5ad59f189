// --- Time line

const lanes = { axis: "times", now: null, x: null };
const laneNames = ["lines", "calls", "refusals", "failures"];
const laneHeight = 46;

function axisTicks(from, to, most) {
  const rough = (to - from) / most || 1;
  const power = 10 ** Math.floor(Math.log10(rough));
  const step = [1, 2, 5, 10].map((each) => each * power).find((each) => each >= rough);
  const ticks = [];
  for (let at = Math.ceil(from / step) * step; at <= to + step * 1e-9; at += step) {
    ticks.push(Number(at.toPrecision(12)));
  }
  return lanes.axis === "steps" ? ticks.filter(Number.isInteger) : ticks;
}

// What has room behind what stands before it, from the left.
function spread(labels, right) {
  let end = -Infinity;
  return labels.filter(({ at, anchor, width }) => {
    const left = at - (anchor === "end" ? width : anchor === "middle" ? width / 2 : 0);
    const fits = left > end + 10 && left + width <= right;
    end = fits ? left + width : end;
    return fits;
  });
}

const pen = document.createElement("canvas").getContext("2d");
function widthOf(text) {
  pen.font = `12px ${getComputedStyle(document.body).fontFamily}`;
  return pen.measureText(text).width;
}

function showLanes(axis) {
  lanes.axis = axis;
  const { origin, width, bins } = data[lanes.axis];
  const steps = lanes.axis === "steps";
  const whole = Math.max(byId("lanes").clientWidth - 22, 320);
  const most = laneNames.map((_, kind) => Math.max(1, ...bins.map((bin) => bin[kind])));
  const notes = laneNames.map((_, kind) => `${number(data.happened[kind])}, most ${number(most[kind])}`);
  const [x0, x1] = [Math.ceil(Math.max(...[...laneNames, ...notes].map(widthOf))) + 14, whole - 8];
  const height = laneNames.length * laneHeight + 24;
  const from = steps ? Math.min(1, bins.length) : origin;
  const first = steps && width === 1 ? 1 : 0;
  const span = Math.max((bins.length - first) * width, width);
  const start = origin + first * width;
  const x = (value) => x0 + (value - start) / span * (x1 - x0);
  const svg = draw("svg", { viewBox: `0 0 ${whole} ${height}`, height, role: "img",
                            "aria-label": `lines, calls of hardware, refusals and failures ${steps ? "by line" : "over simulated time"}` });
  const labels = axisTicks(Math.max(start, from), start + span, Math.max(2, Math.min(8, Math.floor((x1 - x0) / 60)))).map((tick) => {
    const at = x(tick + (steps ? width * 0.5 * (width === 1) : 0));
    const text = steps ? placeNumber(tick) : `${seconds(tick)} s`;
    return { at, text, width: widthOf(text), anchor: at > x1 - 24 ? "end" : at < x0 + 8 ? "start" : "middle" };
  }).filter(({ at }) => at <= x1 + 1);
  svg.append(...labels.map(({ at }) => draw("line", { class: "grid", x1: at, x2: at, y1: 0, y2: height - 20 })),
             ...spread(labels, whole).map(({ at, text, anchor }) =>
               draw("text", { class: "tick", x: at, y: height - 5, "text-anchor": anchor }, text)));
  laneNames.forEach((name, kind) => {
    const base = (kind + 1) * laneHeight;
    svg.append(draw("line", { class: "base", x1: x0, x2: x1, y1: base, y2: base }),
               draw("text", { class: "lane", x: 0, y: base - 20 }, name),
               draw("text", { x: 0, y: base - 6 }, notes[kind]));
    bins.forEach((bin, i) => {
      if (bin[kind]) {
        const h = Math.max(3, bin[kind] / most[kind] * (laneHeight - 8));
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
      hit.append(draw("title", {}, bin.map((count, kind) => `${number(count)} ${laneNames[kind]}`).join(", ")));
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
  const found = data.events.step.filter((_, i) => value[i] >= from && value[i] < to);
  const [first, last] = lanes.axis === "steps" ? [Math.ceil(from), Math.ceil(to) - 1] : [found[0], found[found.length - 1]];
  stateIs({ from: placeNumber(first), to: placeNumber(last), kind: "all" }, true);
  byId("events").scrollIntoView();
}

