// The label edits on a loaded table. The input is a mode byte, the operand
// line(s) and the table. A delete must remove exactly the lines whose first
// word carries the label (a comment on such a line goes with it) and count
// them; a change that succeeds must relabel exactly those lines, keep the
// rest of each first word, and touch nothing else.
#include <string>
#include <vector>

#include "fuzz/harness.h"
#include "table/hba_addr_conf.h"
#include "table/label_edit.h"
#include "table/table_writer.h"

namespace {

std::string table_text()
{
    char *buf = nullptr;
    size_t len = 0;
    FILE *f = open_memstream(&buf, &len);
    if (!f)
        abort();
    FUZZ_CHECK(print_hba_addr_conf(f, nullptr) == 0, "");
    fclose(f);
    std::string out(buf, len);
    free(buf);
    return out;
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> out;
    size_t at = 0;
    while (at < text.size()) {
        size_t nl = text.find('\n', at);
        out.push_back(text.substr(at, nl - at + 1));
        at = nl + 1;
    }
    return out;
}

// The written form has one blank between tokens, so the first word of an
// entry line is everything before its first blank.
enum class Line { other, unlabelled, labelled };
Line label_of(const std::string &line, std::string &label, std::string &rest)
{
    if (line.empty() || line[0] == '#' || line[0] == '\n')
        return Line::other;
    const std::string word = line.substr(0, line.find_first_of(" \n"));
    const size_t comma = word.find(',');
    if (comma == std::string::npos)
        return Line::unlabelled;
    label = word.substr(0, comma);
    rest = line.substr(comma);
    return Line::labelled;
}

// Takes the text up to the next newline off `in`.
std::string take_line(std::string &in)
{
    size_t nl = in.find('\n');
    std::string line = in.substr(0, nl);
    in = nl == std::string::npos ? "" : in.substr(nl + 1);
    return line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const bool change = data[0] & 1;
    std::string rest(reinterpret_cast<const char *>(data + 1), size - 1);
    const std::string old_label = take_line(rest);
    const std::string new_label = change ? take_line(rest) : "";
    if (old_label.find('\0') != std::string::npos || new_label.find('\0') != std::string::npos)
        return 0;  // a command-line operand never holds a NUL

    static InputFile input;
    input.fill(reinterpret_cast<const uint8_t *>(rest.data()), rest.size());
    LineReaderStatus status = 0;
    if (load_hba_addr_conf(input.path(), 0, &status) == -1)
        return 0;
    const std::vector<std::string> before = lines_of(table_text());

    std::string expected;
    int carrying = 0;
    bool unlabelled_word = false;
    for (const std::string &line : before) {
        std::string label, tail;
        const Line kind = label_of(line, label, tail);
        if (kind == Line::unlabelled)
            unlabelled_word = true;
        if (kind == Line::labelled && label == old_label) {
            carrying++;
            expected += change ? new_label + tail : "";
        } else {
            expected += line;
        }
    }

    if (!change) {
        const int removed = parse_hba_addr_conf_delete(old_label.c_str());
        FUZZ_CHECK(removed == carrying, "delete of " + old_label + " miscounted");
        FUZZ_CHECK(table_text() == expected, "delete of " + old_label + " removed the wrong lines");
        return 0;
    }
    const int changed = parse_hba_addr_conf_change(old_label.c_str(), new_label.c_str());
    if (changed == -1)
        return 0;  // refused: the run ends without writing
    FUZZ_CHECK(!unlabelled_word, "change accepted a table with a first word without a comma");
    FUZZ_CHECK(changed == carrying, "change of " + old_label + " miscounted");
    FUZZ_CHECK(table_text() == expected, "change of " + old_label + " to " + new_label);
    return 0;
}
