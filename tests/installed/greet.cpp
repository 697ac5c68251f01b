// The README's script on tarn.hpp, for installed_test.sh.
#include <cstdio>
#include <tarn.hpp>

namespace {

void put_escaped(std::string_view text) {
  for (const char c : text) std::printf(c == '&' || c == '<' ? "&#%d;" : "%c", c);
}

}  // namespace

int main() {
  const tarn::Request request;
  std::printf("Content-Type: text/html; charset=utf-8\r\n\r\n");
  std::printf("<!DOCTYPE html>\n<title>Greeting</title>\n<p>Hello, ");
  put_escaped(request["name"].value_or("stranger"));
  std::printf("%s</p>\n", request.checked("polite") ? ", how do you do?" : "!");
  return request ? 0 : 1;
}
