// Finds the names of search-index.js by name and first sentence. Without this the pages have lists.

// The entries that hold every word of the query: first names that begin with it, then names that
// hold it, then sentences that do.
function find(entries, query) {
  var words = query.toLowerCase().match(/[a-z0-9]+/g) || [];
  var ranked = [[], [], []];
  if (!words.length) return [];
  entries.forEach(function (entry) {
    var name = entry[0].toLowerCase();
    var text = name + ' ' + entry[2].toLowerCase();
    function within(where) {
      return words.every(function (word) { return where.indexOf(word) >= 0; });
    }
    if (name.indexOf(words.join('_')) === 0) ranked[0].push(entry);
    else if (within(name)) ranked[1].push(entry);
    else if (within(text)) ranked[2].push(entry);
  });
  return ranked[0].concat(ranked[1], ranked[2]);
}

function show(query, found, count) {
  var results = find(entries, query);
  found.textContent = '';
  count.textContent = query.trim() ? results.length + ' found' : '';
  results.forEach(function (entry) {
    var item = document.createElement('li');
    var link = document.createElement('a');
    link.href = entry[1];
    link.textContent = entry[0];
    item.appendChild(link);
    item.appendChild(document.createTextNode(' ' + entry[2]));
    found.appendChild(item);
  });
}

function start() {
  var query = document.getElementById('query');
  var found = document.getElementById('found');
  var count = document.getElementById('count');
  query.addEventListener('input', function () { show(query.value, found, count); });
  // Find leads to the first result; without one, to all names.
  query.form.addEventListener('submit', function (event) {
    var first = find(entries, query.value)[0];
    if (!first) return;
    event.preventDefault();
    location.href = first[1];
  });
}

start();
