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

/* Output:
$ SERVER_SOFTWARE=lake/2 SERVER_NAME=lakes.example \
    SERVER_PORT=80 SERVER_PROTOCOL=HTTP/1.1 \
    GATEWAY_INTERFACE=CGI/1.1 PATH_INFO=/idwal \
    PATH_TRANSLATED=/srv/lakes/idwal QUERY_STRING=depth=11 ./server
Content-Type: text/plain

lake/2 at lakes.example, port 80
HTTP/1.1, CGI/1.1
path: /idwal
file: /srv/lakes/idwal
query: depth=11
type: ""
*/
