// JSON text for the reports scripts read: strings escaped so that any byte
// of a label, a path or a message stays valid JSON, and keys.
#pragma once

#include <cstdio>
#include <string_view>

// A JSON string: '"' and '\' escaped, control bytes and bytes outside
// printable ASCII as \u00XX (a label may hold any byte but NUL).
void json_string(FILE *out, std::string_view s);

// The string, or null when it is empty (nothing known).
void json_string_or_null(FILE *out, std::string_view s);

// "name": (the names are the program's own, never escaped).
void json_key(FILE *out, const char *name);
