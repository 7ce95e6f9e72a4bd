// Writes the label table out: to standard output, or atomically to a file
// through a temporary file, with ten numbered backups.
#pragma once

#include <cstdio>

// out: a path, or null for standard output. Returns 0 or -1 (reported).
int write_hba_addr_conf(const char *out);

// Writes the tokens to stream and makes them durable; name (null for standard
// output) is used in messages and decides whether the stream is synced.
int print_hba_addr_conf(FILE *stream, const char *name);
