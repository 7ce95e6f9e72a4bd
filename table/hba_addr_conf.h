// The label table: hba_addr.conf held as its tokens in file order. An entry
// is a line of two words, "LABEL,REST" and a busID, with an optional comment.
#pragma once

#include <cstdint>

#include "table/line_reader.h"
#include "table/token_list.h"

// Lives until the process ends and is never destroyed: freeing a table of
// many thousand tokens one by one at exit would cost more than listing it.
extern TokenList &hba_addr_table;

// Loads conf_file into hba_addr_table; -1 with *status on failure (the
// caller reports it).
int load_hba_addr_conf(const char *conf_file, int32_t timeout_ms,
                       LineReaderStatus *status);

// End callback of the load: logs every badly formed byte and line.
int check_hba_addr_conf(void *user);
