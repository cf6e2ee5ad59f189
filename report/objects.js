// --- Objects: what the words of a key, or a name, name together

const rootNames = new Set(data.roots.map((root) => root.name));
const lowerFirst = (word) => word.charAt(0).toLowerCase() + word.slice(1);
const wordsOf = (key) => [...new Set(key.split(/[\s,;()[\]{}'"]+/).filter(Boolean))];

// A number names something in brackets, in a list, and behind a word that says what it is, not how
// much, when or whether.
const numberBefore = "(?:[[,(]|\\b(?!(?:count|advance|at|add|to|limit|\\w*[Ee]xists|\\w*[Aa]pplied):? )[a-z]\\w*:? )";
const numberBehind = "(?=[\\],);\\s]|:\\s|$)";

function matcherOf(word) {
  const text = word.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
  return new RegExp(/^\d+$/.test(word) ? `${numberBefore}${text}${numberBehind}`
    : rootNames.has(word) ? `(?<![\\w.-])${text}(?![\\w-])`
    : `(?<![\\w:-])${text}(?![\\w-]|[./:]\\w)`, "i");
}

// Whether a text names the object, if there is one.
function namer(object) {
  const matchers = wordsOf(object).map(matcherOf);
  return (text) => matchers.every((matcher) => matcher.test(text));
}

const objectLink = (object, text) => make("a", { class: "object", href: `#${new URLSearchParams({ object })}`, "data-object": object }, text);

// Keys in brackets, lists (not of what is to be traced), MAC addresses, numbers behind words, interfaces, roots.
const nameForms = new RegExp([
  String.raw`(?<=\[)[^\[\]]+(?=\])`,
  String.raw`(?<!^trace )(?<![\w(,./:-])[\w:./-]+(?:,[\w:./-]*\w)+`,
  "(?:[0-9a-f]{2}:){5}[0-9a-f]{2}",
  `(?<=${numberBefore})\\d+${numberBehind}`,
  String.raw`\b[A-Z][A-Za-z]*(?:-[A-Z][a-z]+)?\d+(?:[./]\d+)*(?![\w-])`,
  String.raw`\b[A-Za-z]\w*`,
].join("|"), "g");

// The text, in which what names an object leads to its events.
function linked(text) {
  const parts = [];
  let at = 0;
  for (const { 0: found, index } of text.matchAll(nameForms)) {
    const isWord = /^[A-Za-z]\w*$/.test(found) && !/\d$/.test(found);
    const isKey = text[index - 1] === "[";
    const object = isWord && !isKey ? [found, lowerFirst(found)].find((name) => rootNames.has(name)) : found;
    if (object && wordsOf(object).length) {
      parts.push(text.slice(at, index), objectLink(object, found));
      at = index + found.length;
    }
  }
  return [...parts, text.slice(at)];
}

addEventListener("click", (event) => {
  const link = event.target.closest?.("a.object");
  if (link && !event.ctrlKey && !event.metaKey && !event.shiftKey) {
    event.preventDefault();
    stateIs({ object: link.dataset.object, kind: "all", search: "", from: "", to: "" }, true);
    byId("events").scrollIntoView();
  }
});

