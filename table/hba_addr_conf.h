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

// The site slotag names when the table cannot be loaded.
constexpr unsigned SITE_TABLE_LOAD = 0xff4;

// For the commands that keep no log: loads the table from its fixed place
// with slotag's default timeout, as slotag loads it; a refusal is told on
// standard error with the lines slotag would have written to its log.
bool load_default_hba_addr_conf();

// End callback of the load: logs every badly formed byte and line.
int check_hba_addr_conf(void *user);
