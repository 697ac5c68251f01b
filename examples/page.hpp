/* page.hpp: what the example scripts in C++ share, over page.h. Both stand beside the script when
 * that is compiled.
 */
#ifndef PAGE_HPP
#define PAGE_HPP

#include "page.h"

#include <tarn.hpp>

/* A text without the white space around it. */
inline std::string_view stripped(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  while (!text.empty() && kBlanks.find(text.front()) != kBlanks.npos) text.remove_prefix(1);
  while (!text.empty() && kBlanks.find(text.back()) != kBlanks.npos) text.remove_suffix(1);
  return text;
}

/* A field of the form, stripped; good as long as the request. */
inline std::string_view field(const tarn::Request &request, const char *name) {
  return stripped(request[name].value_or(""));
}

inline bool is_post(const tarn::Request &request) {
  return request.environment().request_method() == "POST";
}

/* What became of a request: the status, and what to tell the visitor, if anything. */
struct Outcome {
  int status;
  const char *problem;
};

/* Answers with a page; false when it was not written. */
inline bool send_page(const char *title, const Outcome &outcome, tarn::ElementList content) {
  using tarn::Attribute, tarn::Element;
  Element head("head", Element("meta", Attribute("charset", "utf-8")));
  head.add(Element("meta", Attribute("name", "viewport"), Attribute("content", PAGE_VIEWPORT)));
  head.add(Element("title", title)).add(Element("style", tarn::Raw(PAGE_STYLE)));
  Element main("main", Element("h1", title));
  if (outcome.problem) main.add(Element("p", Attribute("role", "alert"), outcome.problem));
  main.add(std::move(content));
  const Element page("html", Attribute("lang", "en"), std::move(head),
                     Element("body", std::move(main)));
  return tarn::Response().status(outcome.status).nosniff().send(page);
}

/* Adds a line of texts to a file; false when it is not on the disk, as a whole. */
inline bool add_line(const char *path, std::initializer_list<std::string_view> texts) {
  tarn::String line;
  for (const std::string_view text : texts) {
    const tarn::Text encoded = tarn::escape_url(text);
    if (!encoded || !line.append(line.empty() ? "" : " ") || !line.append(encoded.view())) {
      return false;
    }
  }
  return line.append("\n") && appendLine(openLines(path, F_WRLCK), line.c_str(), line.size());
}

#endif
