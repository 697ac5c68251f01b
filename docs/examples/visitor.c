/* What is known of a visitor. The server vouches for the address
 * and the user; the rest is what the browser says: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle env = 0;
  if (CgiEnv_new(&env) != TARN_OK) return 1;

  printf("Content-Type: text/plain\r\n\r\n");
  printf("address: %s (%s)\n", CgiEnv_getRemoteAddr(&env),
         CgiEnv_getRemoteHost(&env));
  printf("user: %s by %s, \"%s\"\n", CgiEnv_getRemoteUser(&env),
         CgiEnv_getAuthType(&env), CgiEnv_getRemoteIdent(&env));
  printf("with %s, for %s\n", CgiEnv_getUserAgent(&env),
         CgiEnv_getAccept(&env));
  printf("from %s\n", CgiEnv_getReferrer(&env));
  printf("cookies: %s\n", CgiEnv_getCookies(&env));

  CgiEnv_delete(&env);
  return 0;
}

/* Output:
$ REMOTE_ADDR=192.0.2.7 REMOTE_HOST=hut.example REMOTE_USER=ada \
    AUTH_TYPE=Basic HTTP_USER_AGENT=browser/1 HTTP_ACCEPT='*\/\*' \
    HTTP_REFERER=http://lakes.example/ HTTP_COOKIE='visits=7' \
    ./visitor
Content-Type: text/plain

address: 192.0.2.7 (hut.example)
user: ada by Basic, ""
with browser/1, for *\/\*
from http://lakes.example/
cookies: visits=7
*/
