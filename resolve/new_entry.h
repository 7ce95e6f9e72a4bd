// parse_hba_addr_conf_busid_add: appends one resolved entry (a first word
// and a busID) as a new line at the end of the in-memory label table.
#pragma once

#include <cstdint>

// busid_len: the bytes of busid_text within which its NUL must lie. The
// line is appended whole or not at all. Returns 1, or -1 (reported).
int parse_hba_addr_conf_busid_add(const char *first_word, const char *busid_text,
                                  uint32_t busid_len);
