/* Moves and clones objects, and passes them to functions of tarn.h and back: */

#include <cstdio>
#include <tarn.hpp>

int main() {
  tarn::Cookie cookie("colour", "blue");
  tarn::Cookie copy = cookie.clone();
  tarn::Cookie moved = std::move(cookie);
  if (!cookie) std::printf("moved away\n");
  std::printf("%s, %s\n", moved.view().value()->data(),
              copy.view().value()->data());

  // A function of tarn.h works on the same object.
  HTTPCookie_setMaxAge(copy.handle(), 3600);
  std::printf("%ld s\n", copy.view().max_age());

  // Give up ownership and take it back. In between, the handle owns the object.
  TarnHandle handle = copy.release();
  constexpr tarn::Adopt take = tarn::adopt;
  tarn::Cookie back(take, handle);
  std::printf("%s, and the handle is %d\n",
              back ? "taken over" : "lost",
              static_cast<int>(handle));

  tarn::CookieList list;
  list.add(std::move(back)).add(std::move(moved));
  std::printf("%zu cookies, the second %s\n", list.size(),
              list[1].value()->data());

  // Trusted texts are marked.
  tarn::Attribute script("onclick", tarn::Raw("tell()"));
  const bool is_raw =
      CGIgs_getInt(script.handle(), TARN_ATTRIBUTE_NUMBER,
                   TARN_ATTRIBUTE_MAGIC) == tarn::raw_mark;
  std::printf("%s\n", is_raw ? "trusted" : "not trusted");
  return 0;
}

/* Output:
$ ./cpp-objects
moved away
blue, blue
3600 s
taken over, and the handle is 0
2 cookies, the second blue
trusted
*/
