/* Checks an order, and shows it again with what is wrong: */

#include <cstdio>
#include <tarn.hpp>

using tarn::Attribute;

constexpr tarn::Choice kCakes[] = {{"plum", "Plum"},
                                   {"nut", "Nut"}};
constexpr tarn::Choice kWays[] = {{"van", "By van"},
                                  {"shop", "I fetch it"}};

int main() {
  const tarn::Form sent;
  tarn::CheckedForm form(sent);
  form.initially("cake", "nut").initially("name", "Ada");
  const auto name = form.check("name", tarn::line(form["name"], 40),
                               "Please enter a name.");
  const auto cake =
      form.check("cake", tarn::one_of(form["cake"], kCakes),
                 "Please choose a cake.");
  form.check("way", tarn::one_of(form["way"], kWays),
             "Please choose a way.");
  form.check_optional("day", tarn::date(form["day"]),
                      "Please choose a day, or none.");
  if (cake && *cake == "nut" && form["note"] == "No nuts") {
    form.refuse("cake", "There are nuts in it.");
  }
  if (form) {
    const tarn::Text thanks = tarn::escape_html(*name);
    return tarn::Response().send_text(thanks.view()) ? 0 : 1;
  }

  if (form.sentence("way"))
    std::fprintf(stderr, "%zu wrong\n", form.wrong());
  const bool quick = form.typed("way") == "van";
  tarn::Element page("form", Attribute("method", "post"));
  page.add(form.input("name", "Name", Attribute("maxlength", 40)))
      .add(form.input("key", "Key", Attribute("type", "password")))
      .add(form.select("cake", "Cake", kCakes))
      .add(form.radios("way", quick ? "Way (quick)" : "Way", kWays))
      .add(form.input("day", "Day", Attribute("type", "date")))
      .add(form.textarea("note", "Note", Attribute("rows", 3)))
      .add(form.checkbox("card", "With a card"));
  return tarn::Response().status(form.status()).send(page) ? 0 : 1;
}

/* Output:
$ ./cpp-form-checked | sed 's/> *</>\n</g'; echo
Content-Type: text/html; charset=utf-8
Content-Length: 811

<form method="post">
<p>
<label for="name">Name</label>
<input id="name" name="name" maxlength="40" value="Ada">
</p>
<p>
<label for="key">Key</label>
<input id="key" name="key" type="password">
</p>
<p>
<label for="cake">Cake</label>
<select id="cake" name="cake">
<option value="plum">Plum</option>
<option value="nut" selected>Nut</option>
</select>
</p>
<fieldset id="way" role="radiogroup">
<legend>Way</legend>
<label>
<input type="radio" name="way" value="van"> By van</label>
<label>
<input type="radio" name="way" value="shop"> I fetch it</label>
</fieldset>
<p>
<label for="day">Day</label>
<input id="day" name="day" type="date" value="">
</p>
<p>
<label for="note">Note</label>
<textarea id="note" name="note" rows="3">
</textarea>
</p>
<p>
<label>
<input id="card" name="card" type="checkbox"> With a card</label>
</p>
</form>
$ form='name=&key=secret&cake=nut&way=van&day=2024-02-30&note=No+nuts'
$ printf %s "$form" | REQUEST_METHOD=POST CONTENT_LENGTH=${#form} \
    CONTENT_TYPE=application/x-www-form-urlencoded \
    ./cpp-form-checked | sed 's/> *</>\n</g' | \
    grep -A 1 'Status\|aria\|van\|key\|textarea i'
Status: 422 Unprocessable Content
Content-Type: text/html; charset=utf-8
--
<input id="name" name="name" maxlength="40" aria-invalid="true" aria-describedby="name-problem" value="">
<strong id="name-problem">Please enter a name.</strong>
--
<label for="key">Key</label>
<input id="key" name="key" type="password">
</p>
--
<select id="cake" name="cake" aria-invalid="true" aria-describedby="cake-problem">
<option value="plum">Plum</option>
--
<input type="radio" name="way" value="van" checked> By van</label>
<label>
--
<input id="day" name="day" type="date" aria-invalid="true" aria-describedby="day-problem" value="2024-02-30">
<strong id="day-problem">Please choose a day, or none.</strong>
--
<textarea id="note" name="note" rows="3">
No nuts</textarea>
$ form='name=Ada&cake=plum&way=shop&day='
$ printf %s "$form" | REQUEST_METHOD=POST CONTENT_LENGTH=${#form} \
    CONTENT_TYPE=application/x-www-form-urlencoded \
    ./cpp-form-checked; echo
Content-Type: text/plain; charset=utf-8
Content-Length: 3

Ada
*/
