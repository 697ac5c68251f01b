// Prints a page that has its argument in every place where a script may put a text.
#include "tarn.hpp"

int main(int count, char **arguments) {
  using tarn::Attribute;
  using tarn::Element;
  using tarn::Raw;

  const char *text = count > 1 ? arguments[1] : "";
  const tarn::Text html = tarn::escape_html(text);
  const tarn::Text attribute = tarn::escape_attribute(text);
  const tarn::Text url = tarn::escape_url(text);
  const tarn::Text json = tarn::escape_json(text);

  const Element page(
      "html", Element("head", Element("title", text)),
      Element("body", Attribute("class", text), Element("p", text), Element("b", Raw(html.view())),
              Element("pre", text), Element("textarea", text),
              Element("input", Attribute("value", text)),
              Element("i", Attribute("title", Raw(json.view()))), Raw("<u title="),
              Raw(attribute.view()), Raw("></u>"),
              Element("a", Attribute("href", "?"), "?", url.view()),
              Element("script", Attribute("type", "application/json"), Raw(json.view()))));
  return tarn::Response().send(page) ? EXIT_SUCCESS : EXIT_FAILURE;
}
