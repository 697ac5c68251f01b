/* Redirects to this site or to another, and shows a refusal: */

#include <cstdio>
#include <tarn.hpp>

int main(int, char **argv) {
  const std::string_view where = argv[1];
  tarn::Response response;
  if (where == "away") {
    response.redirect_away("https://www.example.org/lake", 301);
  } else {
    response.redirect(where);
  }
  const bool sent = response.send();
  if (!sent) std::printf("(%s)\n", response.problem());
  return 0;
}
