// The label edits of the delete and change modes, done on the tokens of the
// label table so comments, empty lines and order survive.
#pragma once

#include <string_view>

#include "table/token_list.h"

// The label of an entry's first word: the text before its first comma, the
// whole word when it has none.
std::string_view entry_label(const LineToken &first_word);

// Removes every entry labelled `label`; returns how many.
int parse_hba_addr_conf_delete(const char *label);

// Renames old_label to new_label in every entry; returns how many, 0 when
// old_label is absent, -1 when new_label breaks the label rule or a first
// word has no comma.
int parse_hba_addr_conf_change(const char *old_label, const char *new_label);

void print_new_label_syntax();
