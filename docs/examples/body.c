/* An environment whose body the script replaces: */

#include <stdio.h>
#include <tarn.h>

static unsigned body_length(TarnHandle *env) {
  TarnHandle body = CGIgs_getStruct(env, TARN_ENVIRONMENT_BODY,
                                    TARN_ENVIRONMENT_MAGIC);
  return CGIgs_getInt(&body, TARN_BYTE_BUFFER_LENGTH,
                      TARN_BYTE_BUFFER_MAGIC);
}

int main(void) {
  TarnHandle env = 0;
  if (CgiEnv_new(&env) != TARN_OK) return 1;
  printf("%u bytes came\n", body_length(&env));

  CgiEnv_setPostData(&env, "depth=18", 8);
  printf("%u bytes now\n", body_length(&env));

  CgiEnv_clear(&env);
  printf("%u bytes after clearing\n", body_length(&env));

  CgiEnv_delete(&env);
  return 0;
}

/* Output:
$ ./body
0 bytes came
8 bytes now
0 bytes after clearing
*/
