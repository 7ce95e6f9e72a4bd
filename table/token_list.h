// Token lists: every line-oriented text input (the label table, alterpm.conf,
// /proc/devices, the volume manager's query output) is held in memory as the
// list of its tokens in input order, comments and ends of line included, so a
// file can be written back exactly as it was edited.
#pragma once

#include <cstdint>
#include <list>
#include "table/token_pool.h"
#include "table/token_text.h"

enum TokenKind : uint32_t {
    TOKEN_WORD = 1,
    TOKEN_COMMENT = 2,
    TOKEN_EOL = 3,
};

// LineToken::flags bits.
constexpr uint32_t TOKEN_LINE_START = 0x01;
constexpr uint32_t TOKEN_LINE_END = 0x02;
constexpr uint32_t TOKEN_IS_WORD = 0x10;
constexpr uint32_t TOKEN_IS_COMMENT = 0x20;
constexpr uint32_t TOKEN_IS_EOL = 0x40;
constexpr uint32_t TOKEN_DELETED = 0x100;
constexpr uint32_t TOKEN_DUP_DEVICE = 0x200;
constexpr uint32_t TOKEN_DUP_FUNCTION = 0x400;
constexpr uint32_t TOKEN_PARSED = 0x2000;

// Marks the end of the wanted columns of a TokenCollector.
constexpr uint32_t COLUMN_END = 0xFFFFFFFFu;

struct LineToken {
    TokenText text;         // word, "#comment" or "\n"; never holds a NUL
    uint32_t size = 0;      // bytes of text including the terminating NUL
    uint32_t line = 0;      // 1-based
    uint32_t column = 0;    // as delivered by the line reader
    uint32_t field = 0;     // 1-based position of the token in its line
    uint32_t owner_data[3] = {0, 0, 0};  // free for the list's owner
    uint32_t flags = 0;

    bool is_word() const { return (flags & TOKEN_IS_WORD) != 0; }
    bool is_comment() const { return (flags & TOKEN_IS_COMMENT) != 0; }
    bool is_eol() const { return (flags & TOKEN_LINE_END) != 0; }
    bool is_line_start() const { return (flags & TOKEN_LINE_START) != 0; }
};

// Tokens in input order; appends go to the tail, removal keeps the order of
// the others. Iterators stay valid across removal of other tokens.
using TokenList = std::list<LineToken, PoolAllocator<LineToken>>;

// The user record of the standard callbacks below.
struct TokenCollector {
    TokenList *list = nullptr;
    const char *file_name = nullptr;  // used in messages
    uint32_t next_field = 1;
    uint32_t at_line_start = 1;
    const char *key = nullptr;        // select_columns: the key word, or none
    uint32_t columns[4] = {COLUMN_END, COLUMN_END, COLUMN_END, COLUMN_END};
};

// Standard callbacks of the line reader; `user` is a TokenCollector.
int token_list_init(void *user);
int token_list_append(void *user, const char *text, uint32_t size, uint32_t line,
                      uint32_t column, uint32_t kind);
int select_columns(void *user);
