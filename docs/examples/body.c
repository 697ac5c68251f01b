/* An environment whose body the script replaces: */

#include <stdio.h>
#include <tarn.h>

enum { kBody = 0 };   /* struct slots of an environment */
enum { kLength = 0 }; /* int slots of a byte buffer */

static unsigned body_length(TarnHandle *env) {
  TarnHandle body =
      CGIgs_getStruct(env, kBody, TARN_ENVIRONMENT_MAGIC);
  return CGIgs_getInt(&body, kLength, TARN_BYTE_BUFFER_MAGIC);
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
