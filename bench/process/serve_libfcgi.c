/* libfcgi's accept loop: one process for all requests. Tarn reads the environment of the process, so
 * this copies the request's into it. */
#include <fcgiapp.h>

#include "serve.h"

extern char **environ;

int main(void) {
  FCGX_Request request;
  if (FCGX_Init() != 0 || FCGX_InitRequest(&request, 0, 0) != 0) return 1;
  while (FCGX_Accept_r(&request) == 0) {
    TarnHandle tarn = 0;
    environ = request.envp;
    if (Tarn_new(&tarn) != TARN_OK) return 1;
    FCGX_FPrintF(request.out, "Content-Type: text/plain\r\n\r\nname=%s\n", valueOf(&tarn, "name"));
    FCGX_FPrintF(request.out, "city=%s\n", valueOf(&tarn, "city"));
    FCGX_FPrintF(request.out, "colour=%s\n", valueOf(&tarn, "colour"));
    Tarn_delete(&tarn);
    FCGX_Finish_r(&request);
  }
  return 0;
}
