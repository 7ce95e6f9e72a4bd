// Label edits. The label of an entry is its first word up to the first
// comma; the rest of the word (the resolved device) is never touched.
#include "table/label_edit.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "cli/core/report.h"
#include "table/hba_addr_conf.h"

namespace {

constexpr const char *CHANGE_FN = "parse_hba_addr_conf_change";
constexpr int SITE_FIRST_CHAR = 0x90d;
constexpr int SITE_OTHER_CHAR = 0x918;
constexpr int SITE_NO_COMMA = 0x932;
// No memory for a changed first word. The change has no resources report of
// its own; this one names the place, so that an out-of-memory change ends
// with a message and its status like every other failure of the change.
constexpr unsigned SITE_NO_TEXT = 0x93c;

// The first word of a line. An empty line's end-of-line token also starts
// its line, but is no word and so never a label.
bool is_first_word(const LineToken &t) { return t.is_line_start() && t.is_word(); }

// The label of a first word, or false when the word has no comma.
bool label_of(const LineToken &t, std::string_view &label)
{
    label = entry_label(t);
    return label.size() != t.text.size();
}

bool alnum_or_slash(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/';
}

bool label_first_char(unsigned char c) { return alnum_or_slash(c); }

bool label_other_char(unsigned char c)
{
    return alnum_or_slash(c) || c == '-' || c == '_' || c == '.' || c == ':';
}

// The first word with NEW-LABEL in place of its label: the new label, a
// comma and the old rest of the word. false (reported) without memory.
bool relabel(LineToken &t, size_t label_len, const char *new_label)
{
    std::string_view rest = std::string_view(t.text).substr(label_len + 1);
    size_t len = strlen(new_label) + 1 + rest.size();
    std::string text;
    try {
        text.reserve(len);
    } catch (const std::bad_alloc &) {
        report_no_resources(len + 1, SITE_NO_TEXT);
        return false;
    }
    // Within the capacity reserved: these appends allocate nothing.
    text.append(new_label).append(1, ',').append(rest);
    try {
        t.text = text;
    } catch (const std::bad_alloc &) {
        report_no_resources(len + 1, SITE_NO_TEXT);
        return false;
    }
    t.size = static_cast<uint32_t>(t.text.size() + 1);
    return true;
}

} // namespace

std::string_view entry_label(const LineToken &first_word)
{
    std::string_view text = first_word.text;
    return text.substr(0, text.find(','));
}

void print_new_label_syntax()
{
    print_error("invalid character used in NEW-LABEL.\n");
    print_error("  the first character  is   a-z  A-Z  0-9  /\n");
    print_error("  the other characters are  a-z  A-Z  0-9  /  -  _  .  :\n");
}

int parse_hba_addr_conf_delete(const char *label)
{
    int count = 0;
    bool in_deleted_line = false;
    for (LineToken &t : hba_addr_table) {
        if (is_first_word(t)) {
            std::string_view l;
            if (label_of(t, l) && l == label) {
                t.flags |= TOKEN_DELETED;
                count++;
                in_deleted_line = true;
            }
            continue;
        }
        // A comment after the words of a deleted line goes with its line:
        // left behind, it would be written in front of the next line's
        // words and turn that entry into a comment.
        if (in_deleted_line)
            t.flags |= TOKEN_DELETED;
        if (t.is_eol())
            in_deleted_line = false;
    }
    hba_addr_table.remove_if([](const LineToken &t) { return (t.flags & TOKEN_DELETED) != 0; });
    return count;
}

int parse_hba_addr_conf_change(const char *old_label, const char *new_label)
{
    const auto *n = reinterpret_cast<const unsigned char *>(new_label);
    if (!label_first_char(n[0])) {
        print_new_label_syntax();
        log_callee(CHANGE_FN, SITE_FIRST_CHAR);
        return -1;
    }
    for (size_t i = 1; n[i]; i++) {
        if (!label_other_char(n[i])) {
            print_new_label_syntax();
            log_callee(CHANGE_FN, SITE_OTHER_CHAR);
            return -1;
        }
    }

    int count = 0;
    for (LineToken &t : hba_addr_table) {
        if (!is_first_word(t))
            continue;
        std::string_view label;
        if (!label_of(t, label)) {
            log_callee(CHANGE_FN, SITE_NO_COMMA);
            return -1;
        }
        if (label == old_label) {
            if (!relabel(t, label.size(), new_label))
                return -1;
            count++;
        }
    }
    return count;
}
