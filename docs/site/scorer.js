// How Sphinx's search ranks what it finds: what leads to the answer of a question comes first.
var Scorer = {
  objNameMatch: 11,
  objPartialMatch: 6,
  objPrio: { 0: 15, 1: 5, 2: -5 },
  objPrioDefault: 0,
  title: 15,
  partialTitle: 7,
  term: 5,
  partialTerm: 2,
  score: function (result) {
    return result[4] + (result[0].indexOf('guide/') === 0 ? 8 : 0);
  },
};
