/* Prints the request's variables and its unparsed body: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle env = 0;
  if (CgiEnv_new(&env) != TARN_OK) return 1;

  printf("Content-Type: text/plain\r\n\r\n");
  printf("%s for %s\n", CgiEnv_getRequestMethod(&env),
         CgiEnv_getScriptName(&env));
  printf("announced: %d bytes\n", CgiEnv_getContentLength(&env));

  TarnHandle body = CGIgs_getStruct(&env, TARN_ENVIRONMENT_BODY,
                                    TARN_ENVIRONMENT_MAGIC);
  printf("body: ");
  fwrite(
      (const void *)CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC),
      1,
      CGIgs_getInt(&body, TARN_BYTE_BUFFER_LENGTH,
                   TARN_BYTE_BUFFER_MAGIC),
      stdout);
  printf("\n");

  CgiEnv_delete(&env);
  return 0;
}

/* Output:
$ printf 'depth=18' | REQUEST_METHOD=POST CONTENT_LENGTH=8 \
    SCRIPT_NAME=/cgi-bin/environment ./environment
Content-Type: text/plain

POST for /cgi-bin/environment
announced: 8 bytes
body: depth=18
*/
