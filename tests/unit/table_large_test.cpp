// Tables larger than the reader's chunk and the writer's block: every token
// keeps its position, and the table is written back byte for byte in its
// normal form (single blanks, comments after one blank).
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "table/hba_addr_conf.h"
#include "table/line_reader.h"
#include "table/table_writer.h"

namespace {

struct Expected {
    std::string text;
    uint32_t line, column;
};

// Lines of words and comments with runs of blanks and tabs of varying width,
// some words longer than a chunk's worth of short ones, and the positions a
// reader must report: 1-based byte position in the line.
std::string make_input(std::vector<Expected> &tokens, std::string &normal)
{
    std::string input;
    for (uint32_t line = 1; line <= 3000; line++) {
        std::string text;
        std::string out;
        for (int w = 0; w < 2; w++) {
            text.append(std::string(w + (line + w) % 4, (line % 3) ? ' ' : '\t'));
            std::string word = (w == 0 ? "label" : "0000:00:") + std::to_string(line * 7 + w);
            if (line % 97 == 0)
                word.append(300, 'x');
            tokens.push_back({word, line, static_cast<uint32_t>(text.size() + 1)});
            text += word;
            out += (w ? " " : "") + word;
        }
        if (line % 5 == 0) {
            text += "  #c\tx " + std::to_string(line);
            std::string comment = "#c\tx " + std::to_string(line);
            tokens.push_back({comment, line, static_cast<uint32_t>(text.size() - comment.size() + 1)});
            out += " " + comment;
        }
        tokens.push_back({"\n", line, static_cast<uint32_t>(text.size())});
        input += text + "\n";
        normal += out + "\n";
    }
    return input;
}

TEST(TableLarge, PositionsAndRoundTripBeyondOneChunk)
{
    std::vector<Expected> expected;
    std::string normal;
    std::string input = make_input(expected, normal);
    ASSERT_GT(input.size(), 20 * line_reader_buffer_size());

    char path[] = "/tmp/slotag-large-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, input.data(), input.size()), static_cast<ssize_t>(input.size()));
    close(fd);
    LineReaderStatus status = 0;
    ASSERT_EQ(load_hba_addr_conf(path, 1000, &status), 0) << std::hex << status;
    unlink(path);

    ASSERT_EQ(hba_addr_table.size(), expected.size());
    size_t i = 0;
    for (const LineToken &t : hba_addr_table) {
        const Expected &e = expected[i++];
        ASSERT_EQ(t.text, e.text) << "token " << i;
        ASSERT_EQ(t.line, e.line) << "token " << i;
        ASSERT_EQ(t.column, e.column) << "token " << i << " " << std::string_view(t.text).substr(0, 20);
    }

    char *written = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&written, &size);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(print_hba_addr_conf(out, nullptr), 0);
    fclose(out);
    EXPECT_EQ(std::string(written, size), normal);
    free(written);
    hba_addr_table.clear();
}

// The check of a word looks at eight bytes at a time: every byte value, at
// every position of words shorter and longer than eight, is judged as the
// rule says (0x21 to 0x7e printable, all else refused).
TEST(TableLarge, EveryBadByteIsFoundAtEveryPosition)
{
    TokenList list;
    TokenCollector c;
    c.list = &list;
    c.file_name = "hba_addr.conf";
    for (size_t length : {1, 7, 8, 9, 16, 17, 23}) {
        for (size_t pos = 0; pos < length; pos++) {
            for (int b = 1; b < 256; b++) {
                std::string word(length, 'a');
                word[pos] = static_cast<char>(b);
                list.clear();
                c.next_field = 1;
                c.at_line_start = 1;
                token_list_append(&c, word.c_str(), static_cast<uint32_t>(length + 1), 1, 1,
                                  TOKEN_WORD);
                token_list_append(&c, "0:0:0.0", 8, 1, 30, TOKEN_WORD);
                token_list_append(&c, "\n", 2, 1, 37, TOKEN_EOL);
                ASSERT_EQ(check_hba_addr_conf(&c), b >= 0x21 && b <= 0x7e ? 1 : -1)
                    << "byte " << b << " at " << pos << " of " << length;
            }
        }
    }
}

} // namespace
