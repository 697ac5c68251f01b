// What the site adds to Sphinx's search and keys.

// A result has the first sentence of its page, and a page is listed once.
function describe(list) {
  var seen = {};
  list.querySelectorAll('li').forEach(function (item) {
    var link = item.querySelector('a');
    var page = link.getAttribute('href').replace(/\.html.*/, '');
    var anchor = link.hash && !/^#index-/.test(link.hash) ? link.hash : '';
    var known = seen[page] || (seen[page] = []);
    if (known.indexOf(link.textContent) >= 0 || (known.length && !anchor)) {
      item.remove();
      return;
    }
    known.push(link.textContent);
    if (!item.querySelector('p') && summaries[page]) {
      var text = document.createElement('p');
      text.className = 'context';
      text.textContent = summaries[page];
      item.appendChild(text);
    }
  });
}

// "/" opens the drawer in which the search is on a narrow screen.
function openSearch(event) {
  if (event.key !== '/' || event.ctrlKey || event.altKey || event.metaKey) return;
  if (/^(INPUT|TEXTAREA|SELECT)$/.test(document.activeElement.tagName)) return;
  document.getElementById('__navigation').checked = true;
}

document.addEventListener('keydown', openSearch, true);
document.addEventListener('DOMContentLoaded', function () {
  var results = document.getElementById('search-results');
  if (!results) return;
  new MutationObserver(function () {
    var list = results.querySelector('ul.search');
    if (list) describe(list);
  }).observe(results, { childList: true, subtree: true });
});
