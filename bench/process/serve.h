/* The script that all ways of running it have in common. */
#ifndef BENCH_SERVE_H
#define BENCH_SERVE_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarn.h>
#include <unistd.h>

static inline const char *valueOf(TarnHandle *request, const char *name) {
  TarnHandle entry = Tarn_getElementByName(request, name);
  const char *value = CGIgs_getString(&entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC);
  return value ? value : "";
}

/* Counts a body that is not a form, without keeping it. */
static inline int countBody(void) {
  static char block[65536];
  long long size = 0;
  ssize_t got;
  while ((got = read(0, block, sizeof block)) > 0) size += got;
  printf("Content-Type: text/plain\r\n\r\n%lld bytes\n", size);
  return 0;
}

static inline int script(void) {
  const char *method = getenv("REQUEST_METHOD");
  if (method && strcmp(method, "POST") == 0) return countBody();
  TarnHandle request = 0;
  if (Tarn_new(&request) != TARN_OK) return 1;
  printf("Content-Type: text/plain\r\n\r\nname=%s\n", valueOf(&request, "name"));
  printf("city=%s\n", valueOf(&request, "city"));
  printf("colour=%s\n", valueOf(&request, "colour"));
  Tarn_delete(&request);
  return 0;
}

#endif
