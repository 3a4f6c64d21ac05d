// Stands in for Doxygen's search, which knows names only: this one finds what has all words in its name, then what has
// them in its sentence, or in its text if it is a part of a document, then what has them in its text or in its page's
// sentence. The pages make the box and call a SearchBox; search/searchdata.js has the entries [name, page, sentence,
// text], documents first, and the everyday words.
"use strict";

const MOST_SHOWN = 100;
const MOST_OF_A_TEXT = 200;

const everydayWords = new Map(Object.entries(searchWords));
const sentenceOfPage = new Map(searchEntries.map(([, page, sentence]) => [page, sentence]));

// A word without its ending, and what the pages say in its place.
function formsOf(word) {
  return [word.replace(/^(\w{4,}?)(?:ed|ing|es|e|s)$/, "$1"), ...(everydayWords.get(word) ?? [])];
}

function placeOf(forms, text) {
  const places = forms.map((form) => text.toLowerCase().indexOf(form)).filter((place) => place >= 0);
  return Math.min(...places);
}

// From the sentence with the word that comes last, which is often the rarest.
function excerpt(text, words) {
  const place = Math.max(...words.map((forms) => placeOf(forms, text)));
  const start = place === Infinity ? 0 : text.lastIndexOf(". ", place) + 1;
  const found = text.slice(start).trim();
  return found.length > MOST_OF_A_TEXT ? found.slice(0, MOST_OF_A_TEXT).replace(/\S*$/, "…") : found;
}

// What the words may stand in, the best first, each with what is shown then.
function placesIn([name, page, sentence, text], words) {
  const inName = [name, sentence];
  const inSentence = [`${name} ${sentence}`, sentence];
  const inText = [`${name} ${sentence} ${text}`, excerpt(text, words)];
  const onPage = [`${name} ${sentence} ${sentenceOfPage.get(page.split("#")[0])}`, sentence];
  return page.startsWith("md_") ? [inName, inText] : [inName, inSentence, inText, onPage];
}

function matches(query) {
  const asked = query.toLowerCase().split(/\W+/).filter((word) => word && !everydayWords.get("-").includes(word));
  const words = asked.map(formsOf);
  const holds = (text) => words.every((forms) => placeOf(forms, text) < Infinity);
  const ranked = [[], [], [], []];
  for (const entry of words.length ? searchEntries : []) {
    const places = placesIn(entry, words);
    const best = places.findIndex(([place]) => holds(place));
    ranked[best]?.push([entry[0], entry[1], places[best][1]]);
  }
  return ranked.flat();
}

function resultOf([name, page, sentence]) {
  const link = document.createElement("a");
  link.href = page;
  link.append(Object.assign(document.createElement("b"), { textContent: name }), ` ${sentence}`);
  return link;
}

class SearchBox {
  OnSearchFieldFocus(active) {
    const field = document.getElementById("MSearchField");
    if (active && field.value === "Search") field.value = "";
  }

  OnSearchFieldChange(event) {
    const results = document.getElementById("MSearchResultsWindow");
    if (event.key === "Escape") return this.CloseResultsWindow();
    if (event.key === "Enter") return results.querySelector("a")?.click();
    const found = matches(event.target.value);
    results.replaceChildren(...found.slice(0, MOST_SHOWN).map(resultOf));
    if (!found.length) results.textContent = "Nothing has all these words.";
    results.style.display = event.target.value.trim() ? "block" : "none";
  }

  CloseResultsWindow() {
    document.getElementById("MSearchResultsWindow").style.display = "none";
  }

  // The choice among kinds of names, which is not offered.
  OnSearchSelectShow() {}
  OnSearchSelectHide() {}
  OnSearchSelectKey() {}
}

function init_search() {
  document.addEventListener("click", () => searchBox.CloseResultsWindow());
}
