/* As CGI, and as a FastCGI service with a process for each request. */
#include <tarn_serve.h>

#include "serve.h"

int main(void) { return tarn_serve(script); }
