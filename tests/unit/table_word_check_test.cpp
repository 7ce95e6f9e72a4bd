// The check of a loaded table's words takes eight bytes at a time: every
// byte value, at every position of words shorter and longer than eight, is
// judged as the plain rule says (0x21 to 0x7e printable, all else refused).
// No scenario's table can try them all.
#include <string>

#include <gtest/gtest.h>

#include "table/hba_addr_conf.h"

namespace {

TEST(TableWordCheck, EveryBadByteIsFoundAtEveryPosition)
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
