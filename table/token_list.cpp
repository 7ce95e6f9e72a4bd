// The standard callbacks that collect a text input into a TokenList, and the
// column filter used for alterpm.conf and the volume manager's output.
#include "table/token_list.h"

#include <cstring>
#include <new>

#include "cli/core/report.h"

int token_list_init(void *user)
{
    auto *c = static_cast<TokenCollector *>(user);
    c->list->clear();
    return 1;
}

int token_list_append(void *user, const char *text, uint32_t size, uint32_t line,
                      uint32_t column, uint32_t kind)
{
    auto *c = static_cast<TokenCollector *>(user);
    uint32_t flags;
    switch (kind) {
    case TOKEN_WORD: flags = TOKEN_IS_WORD; break;
    case TOKEN_COMMENT: flags = TOKEN_IS_COMMENT; break;
    case TOKEN_EOL: flags = TOKEN_IS_EOL | TOKEN_LINE_END; break;
    default: return -1;
    }
    try {
        c->list->emplace_back();
    } catch (const std::bad_alloc &) {
        report_no_resources(sizeof(LineToken), 0x1f3);
        return -1;
    }
    LineToken &t = c->list->back();
    try {
        t.text.assign(text, size ? strnlen(text, size - 1) : 0);
    } catch (const std::bad_alloc &) {
        report_no_resources(size, 0x1fa);
        c->list->pop_back();
        return -1;
    }
    t.size = size;
    t.flags = flags;
    t.line = line;
    t.column = column;
    t.field = c->next_field++;
    if (c->at_line_start) {
        t.flags |= TOKEN_LINE_START;
        c->at_line_start = 0;
    }
    if (kind == TOKEN_EOL) {
        c->at_line_start = 1;
        c->next_field = 1;
    }
    return 1;
}

int select_columns(void *user)
{
    auto *c = static_cast<TokenCollector *>(user);
    uint32_t wanted = 0;
    while (wanted < 4 && c->columns[wanted] != COLUMN_END)
        wanted++;
    if (wanted == 0) {
        report_fatal(0x1a8);
        return -1;
    }
    auto is_wanted = [&](uint32_t field) {
        for (uint32_t i = 0; i < wanted; i++)
            if (c->columns[i] == field)
                return true;
        return false;
    };

    TokenList &list = *c->list;
    bool accepted = false;
    uint32_t matched = 0;
    for (auto it = list.begin(); it != list.end();) {
        if (!accepted) {
            if (!it->is_word() || (c->key && it->text != c->key)) {
                it = list.erase(it);
                continue;
            }
            accepted = true;
        }
        bool eol = it->is_eol();
        if (is_wanted(it->field)) {
            matched++;
            ++it;
        } else {
            it = list.erase(it);
        }
        if (eol) {
            if (matched != wanted) {
                report_fatal(0x1c8);
                return -1;
            }
            accepted = false;
            matched = 0;
        }
    }
    return 1;
}
