// Stands in for Doxygen's search, which knows names only: this one finds what has all words in its name or in its
// sentence. The pages make the box and call a SearchBox; search/searchdata.js has the entries [name, page, sentence].
"use strict";

const MOST_SHOWN = 40;

function matches(query) {
  const words = query.toLowerCase().split(/\W+/).filter(Boolean);
  const holds = (text) => words.every((word) => text.toLowerCase().includes(word));
  const byName = searchEntries.filter(([name]) => holds(name));
  const bySentence = searchEntries.filter(([name, , sentence]) => !holds(name) && holds(`${name} ${sentence}`));
  return words.length ? [...byName, ...bySentence] : [];
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
