/* Reads a body from standard input with limits, and tells what is
 * wrong with it: */

#include <stdio.h>
#include <tarn_form.h>
#include <unistd.h>

int main(int count, char **arguments) {
  if (count != 2) return 2;
  TarnForm *form = TarnForm_openDescriptor(
      arguments[1], STDIN_FILENO, TARN_FORM_UNLIMITED);
  TarnForm_setLimit(form, TARN_FORM_FIELDS, 3);
  TarnForm_setLimit(form, TARN_FORM_WAIT_SECONDS, 10);

  TarnFormField *field;
  while ((field = TarnForm_next(form)) != NULL)
    TarnFormField_skip(field);

  TarnFormProblem problem = TarnForm_problem(form);
  if (problem != TARN_FORM_NO_PROBLEM) {
    printf("Status: %d\n", TarnForm_status(form));
    printf("%s at byte %llu\n%s\n", TarnForm_problemName(problem),
           (unsigned long long)TarnForm_problemOffset(form),
           TarnForm_message(form));
  }
  TarnFormLimit limit;
  uint64_t value;
  if (TarnForm_limit(form, &limit, &value) &&
      limit == TARN_FORM_FIELDS) {
    printf("At most %u fields, please.\n", (unsigned)value);
  }
  TarnForm_close(form);
  return problem != TARN_FORM_NO_PROBLEM;
}

/* Output:
$ type=application/x-www-form-urlencoded
$ printf 'a=1&b=2&c=3' | ./form-problem $type
$ printf 'a=1&b=2&c=3&d=4' | ./form-problem $type || :
Status: 413
limit at byte 12
more than 3 fields
At most 3 fields, please.
$ printf '%s\r\n' --cut 'Content-Disposition: form-data; name="a"' \
    '' 1 --cut >body
$ ./form-problem multipart/form-data <body || :
Status: 400
no_boundary at byte 0
no boundary in CONTENT_TYPE
$ ./form-problem 'multipart/form-data; boundary=cut' <body || :
Status: 400
cut_short at byte 61
cut short: the body ends in the headers of a part
*/
