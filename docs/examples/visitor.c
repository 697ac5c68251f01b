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
