/* An error page that the server runs for a missing page: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle env = 0;
  if (CgiEnv_new(&env) != TARN_OK) return 1;

  printf("Status: %s\r\n", CgiEnv_getRedirectStatus(&env));
  printf("Content-Type: text/plain\r\n\r\n");
  printf("No page %s here.\n", CgiEnv_getRedirectURL(&env));
  printf("You asked: %s\n", CgiEnv_getRedirectRequest(&env));

  CgiEnv_delete(&env);
  return 0;
}

/* Output:
$ REDIRECT_STATUS=404 REDIRECT_URL=/tarn \
    REDIRECT_REQUEST='GET /tarn' ./redirected
Status: 404
Content-Type: text/plain

No page /tarn here.
You asked: GET /tarn
*/
