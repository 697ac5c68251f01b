#ifndef SERVE_SCAN_H
#define SERVE_SCAN_H

/* Looks for bytes in all memory that this process can read, and prints them with what
 * follows, and with the name of the mapping. They are given as hexadecimal numbers with all bits
 * inverted, so that they are not found here. */
void scan_memory(const char *inverted);

#endif
