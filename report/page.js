"use strict";

// What all pages have: the data, elements and numbers, and the head.

const data = JSON.parse(document.getElementById("data").textContent);
const byId = (id) => document.getElementById(id);
const number = (value) => value.toLocaleString("en");
const seconds = (value) => String(Number(value.toFixed(6)));
const plural = (count, word) => `${number(count)} ${count !== 1 && word.endsWith("y") ? `${word.slice(0, -1)}ies` : count !== 1 ? `${word}s` : word}`;

// An element with text, or with children; text is never taken for markup.
function make(tag, attributes, ...children) {
  return fill(document.createElement(tag), attributes, children);
}

// Likewise, of a drawing.
function draw(tag, attributes, ...children) {
  return fill(document.createElementNS("http://www.w3.org/2000/svg", tag), attributes, children);
}

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes || {})) {
    element.setAttribute(name, value);
  }
  element.append(...children);
  return element;
}

// Figures are names and what stands below each, and whether that is bad. A remark stands beside the
// verdict and is no part of it. The sections of a page that have a short name are listed by it.
function showHead(title, verdict, isBad, figures, remark) {
  byId("title").textContent = title;
  document.title = `${title} - KezEvpn`;
  byId("verdict").textContent = verdict;
  byId("verdict").classList.toggle("bad", isBad);
  if (remark) {
    byId("verdict").append(", ", make("span", { class: "remark" }, remark));
  }
  for (const [name, value, bad] of figures) {
    byId("figures").append(make("div", bad ? { class: "bad" } : {}, make("dt", {}, name), make("dd", {}, value)));
  }
  for (const section of document.querySelectorAll("section[data-name]")) {
    const link = make("a", { href: `#${section.id}` }, section.dataset.name);
    // The fragment may hold what the page shows, which going to a section leaves.
    link.addEventListener("click", (event) => {
      event.preventDefault();
      section.scrollIntoView();
    });
    byId("sections").append(link);
  }
}
