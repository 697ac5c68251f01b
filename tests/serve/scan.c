#include "scan.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

/* How much is printed beyond what was looked for, and how long that may be. */
enum { SHOWN = 24, MOST = 64 };

/* Larger mappings are the sanitizers' own tables. */
#define LARGEST (200ULL << 20)

static unsigned char wanted[MOST];
static size_t wanted_size;
static char block[1 << 20];

static void search(const char *mapping, size_t size) {
  size_t i;
  size_t k;
  for (i = 0; i + wanted_size <= size; ++i) {
    for (k = 0; k < wanted_size && (unsigned char)~block[i + k] == wanted[k];) ++k;
    if (k < wanted_size) continue;
    printf("%s: ", mapping);
    for (k = i; k < size && k < i + wanted_size + SHOWN && block[k] > ' '; ++k) putchar(block[k]);
    putchar('\n');
  }
}

static void search_mapping(int memory, unsigned long long from, unsigned long long to,
                           const char *name) {
  while (from < to) {
    const size_t size = to - from < sizeof block ? (size_t)(to - from) : sizeof block;
    const ssize_t count = pread(memory, block, size, (off_t)from);
    if (count <= 0) return; /* of the kernel */
    search(name, (size_t)count);
    if ((size_t)count == size && size == to - from) return;
    from += (size_t)count > 2 * MOST ? (size_t)count - 2 * MOST : (size_t)count;
  }
}

void scan_memory(const char *inverted) {
  static char maps[1 << 18];
  size_t size = 0;
  ssize_t count;
  char *line;
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  const int list = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  for (wanted_size = 0; wanted_size < MOST && inverted[0] && inverted[1]; inverted += 2) {
    const char digits[3] = {inverted[0], inverted[1], '\0'};
    wanted[wanted_size++] = (unsigned char)strtoul(digits, NULL, 16);
  }
  while ((count = read(list, maps + size, sizeof maps - 1 - size)) > 0) size += (size_t)count;
  if (memory < 0 || wanted_size < 4 || size == 0 || size == sizeof maps - 1) exit(96);
  for (line = strtok(maps, "\n"); line; line = strtok(NULL, "\n")) {
    unsigned long long from;
    unsigned long long to;
    char rights[5];
    int name = 0;
    if (sscanf(line, "%llx-%llx %4s %*s %*s %*s %n", &from, &to, rights, &name) != 3) exit(95);
    if (rights[0] == 'r' && to - from < LARGEST) search_mapping(memory, from, to, line + name);
  }
  close(memory);
  close(list);
}
