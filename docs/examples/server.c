/* Prints what the server says about itself and the script's path: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle env = 0;
  if (CgiEnv_new(&env) != TARN_OK) return 1;

  printf("Content-Type: text/plain\r\n\r\n");
  printf("%s at %s, port %d\n", CgiEnv_getServerSoftware(&env),
         CgiEnv_getServerName(&env),
         (int)CgiEnv_getServerPort(&env));
  printf("%s, %s\n", CgiEnv_getServerProtocol(&env),
         CgiEnv_getGatewayInterface(&env));
  printf("path: %s\n", CgiEnv_getPathInfo(&env));
  printf("file: %s\n", CgiEnv_getPathTranslated(&env));
  printf("query: %s\n", CgiEnv_getQueryString(&env));
  printf("type: \"%s\"\n", CgiEnv_getContentType(&env));

  CgiEnv_delete(&env);
  return 0;
}
