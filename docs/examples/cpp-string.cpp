/* Builds a string and changes it: */

#include <cstdio>
#include <tarn.hpp>

int main() {
  tarn::String line("lake");
  line.append_format(": %d m", 18);
  line.insert(0, "deep ");
  std::puts(line.c_str());

  line.remove(0, 5);
  line.reserve(100);
  line.append(", cold");
  line += " and clear";
  std::printf("\"%s\", %zu bytes\n", line.view().data(),
              line.size());

  tarn::String copy = line.clone();
  TARNString_printline(copy.handle());

  line.assign(line.view().substr(0, 4));
  std::puts(line.c_str());
  line.clear();
  return line.empty() ? 0 : 1;
}

/* Output:
$ ./cpp-string
deep lake: 18 m
"lake: 18 m, cold and clear", 26 bytes
lake: 18 m, cold and clear
lake
*/
