/* The least that a CGI script can do: read the body and print its length. */
#include <stdio.h>
#include <stdlib.h>

int main(void) {
  const char *length = getenv("CONTENT_LENGTH");
  const size_t size = length ? strtoul(length, NULL, 10) : 0;
  char *body = malloc(size + 1);
  if (!body) return 1;
  printf("Content-Type: text/plain\n\n%zu bytes\n", fread(body, 1, size, stdin));
  return 0;
}
