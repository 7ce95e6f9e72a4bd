// Token texts share blocks: a copy shares the bytes of its original, a new
// text never changes bytes another token still shows, and the blocks go
// back only when no text uses them (the sanitizer build sees a text read
// after its block was freed).
#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "table/token_list.h"

namespace {

TokenText text_of(std::string_view s)
{
    TokenText t;
    t = s;
    return t;
}

TEST(TokenText, CopiesAndNewTextsKeepEveryTokenItsOwnText)
{
    TokenText empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_STREQ(empty.c_str(), "");

    TokenText a = text_of("lab,/dev/sdb");
    TokenText b = a;  // shares the bytes
    a = std::string_view("new,/dev/sdb");
    EXPECT_EQ(a, "new,/dev/sdb");
    EXPECT_EQ(b, "lab,/dev/sdb");
    EXPECT_EQ(b.size(), 12u);
    EXPECT_EQ(b.c_str()[b.size()], '\0');

    TokenText &same = b;
    b = same;  // assigning a text to itself keeps it
    EXPECT_EQ(b, "lab,/dev/sdb");
    a = b;
    EXPECT_EQ(a, "lab,/dev/sdb");
    a = std::string_view();
    EXPECT_TRUE(a.empty());
    EXPECT_EQ(b, "lab,/dev/sdb");

    // Longer than a block: a block of its own, and the texts around it stay.
    std::string long_text(100 * 1024, 'x');
    TokenText big = text_of(long_text);
    TokenText after = text_of("after");
    EXPECT_EQ(big, long_text);
    EXPECT_EQ(after, "after");
    EXPECT_EQ(b, "lab,/dev/sdb");
}

TEST(TokenText, BlocksAreReusedOnlyOnceNoTextUsesThem)
{
    for (int round = 0; round < 3; round++) {
        auto first = std::make_unique<std::list<TokenText>>();
        std::list<TokenText> second;
        // Enough texts to fill several blocks, the two lists interleaved.
        for (int i = 0; i < 20000; i++) {
            first->push_back(text_of("first " + std::to_string(i)));
            second.push_back(text_of("second " + std::to_string(i)));
        }
        first.reset();  // the blocks are still in use by `second`
        std::list<TokenText> third;
        for (int i = 0; i < 20000; i++)
            third.push_back(text_of("third " + std::to_string(i)));
        int i = 0;
        for (const TokenText &t : second)
            ASSERT_EQ(t, "second " + std::to_string(i++));
        i = 0;
        for (const TokenText &t : third)
            ASSERT_EQ(t, "third " + std::to_string(i++));
    }
}

} // namespace
