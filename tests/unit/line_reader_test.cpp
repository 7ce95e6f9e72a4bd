// The line reader: token kinds, positions, chunk boundaries, limits and
// time-outs, and the column filter.
#include <cerrno>
#include <cstdlib>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "table/line_reader.h"
#include "table/token_list.h"

namespace {

struct Seen {
    std::string text;
    uint32_t line, column, kind;
    bool operator==(const Seen &o) const
    {
        return text == o.text && line == o.line && column == o.column && kind == o.kind;
    }
};

void PrintTo(const Seen &s, std::ostream *os)
{
    *os << '{' << testing::PrintToString(s.text) << ' ' << s.line << ':' << s.column << " k"
        << s.kind << '}';
}

struct Recorder {
    std::vector<Seen> tokens;
    int begins = 0, ends = 0;
    int stop_after = -1;  // token callback answers 0 after this many tokens
};

LineReaderCallbacks recorder_callbacks(Recorder &rec)
{
    return {[](void *u) { static_cast<Recorder *>(u)->begins++; return 1; },
            [](void *u, const char *text, uint32_t size, uint32_t line, uint32_t column,
               uint32_t kind) {
                auto *r = static_cast<Recorder *>(u);
                EXPECT_EQ(size, strlen(text) + 1);
                r->tokens.push_back({text, line, column, kind});
                return static_cast<int>(r->tokens.size()) == r->stop_after ? 0 : 1;
            },
            [](void *u) { static_cast<Recorder *>(u)->ends++; return 1; }, &rec};
}

// A pipe whose writer sends the given pieces one at a time, each after a
// pause, so the reader sees them as separate chunks.
class PipeFeeder {
public:
    explicit PipeFeeder(std::vector<std::string> pieces, int pause_ms = 30)
    {
        EXPECT_EQ(pipe(fds_), 0);
        writer_ = std::thread([this, pieces, pause_ms] {
            for (const auto &p : pieces) {
                std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
                EXPECT_EQ(write(fds_[1], p.data(), p.size()), static_cast<ssize_t>(p.size()));
            }
            close(fds_[1]);
        });
    }
    ~PipeFeeder()
    {
        writer_.join();
        close(fds_[0]);
    }
    int fd() const { return fds_[0]; }

private:
    int fds_[2];
    std::thread writer_;
};

std::vector<Seen> read_all(const std::vector<std::string> &pieces, int *result = nullptr,
                           LineReaderStatus *status = nullptr)
{
    Recorder r;
    auto cb = recorder_callbacks(r);
    PipeFeeder feed(pieces);
    int rc = read_lines(nullptr, feed.fd(), 5000, &cb, status);
    if (result)
        *result = rc;
    return r.tokens;
}

TEST(LineReader, PositionsOfWordsCommentsAndEnds)
{
    EXPECT_THAT(read_all({"  a\t b  \n"}),
                testing::ElementsAre(Seen{"a", 1, 3, TOKEN_WORD}, Seen{"b", 1, 6, TOKEN_WORD},
                                     Seen{"\n", 1, 8, TOKEN_EOL}));
    EXPECT_THAT(read_all({"x#y z\n\n"}),
                testing::ElementsAre(Seen{"x", 1, 1, TOKEN_WORD}, Seen{"#y z", 1, 2, TOKEN_COMMENT},
                                     Seen{"\n", 1, 5, TOKEN_EOL}, Seen{"\n", 2, 0, TOKEN_EOL}));
    // CR and bytes above 0x7E are ordinary; a NUL cuts the delivered text.
    EXPECT_THAT(read_all({std::string("a\r\n\xe9z\n", 6), std::string("p\0q r\n", 6)}),
                testing::ElementsAre(Seen{"a\r", 1, 1, TOKEN_WORD}, Seen{"\n", 1, 2, TOKEN_EOL},
                                     Seen{"\xe9z", 2, 1, TOKEN_WORD}, Seen{"\n", 2, 2, TOKEN_EOL},
                                     Seen{"p", 3, 3, TOKEN_WORD}, Seen{"r", 3, 5, TOKEN_WORD},
                                     Seen{"\n", 3, 5, TOKEN_EOL}));
}

TEST(LineReader, TokensSplitAcrossChunksAreDeliveredWhole)
{
    EXPECT_THAT(read_all({"ab", "c d", "ef #com", "ment\n", "g", "\n"}),
                testing::ElementsAre(Seen{"abc", 1, 1, TOKEN_WORD}, Seen{"def", 1, 5, TOKEN_WORD},
                                     Seen{"#comment", 1, 9, TOKEN_COMMENT},
                                     Seen{"\n", 1, 16, TOKEN_EOL}, Seen{"g", 2, 1, TOKEN_WORD},
                                     Seen{"\n", 2, 1, TOKEN_EOL}));
}

TEST(LineReader, LastLineWithoutNewlineIsFinished)
{
    EXPECT_THAT(read_all({"a b\nlast,x 0:1:2.3"}),
                testing::ElementsAre(Seen{"a", 1, 1, TOKEN_WORD}, Seen{"b", 1, 3, TOKEN_WORD},
                                     Seen{"\n", 1, 3, TOKEN_EOL},
                                     Seen{"last,x", 2, 1, TOKEN_WORD},
                                     Seen{"0:1:2.3", 2, 8, TOKEN_WORD},
                                     Seen{"\n", 2, 14, TOKEN_EOL}));
    EXPECT_THAT(read_all({"a #tail"}),
                testing::ElementsAre(Seen{"a", 1, 1, TOKEN_WORD}, Seen{"#tail", 1, 3, TOKEN_COMMENT},
                                     Seen{"\n", 1, 7, TOKEN_EOL}));
    // Trailing blanks alone make no line.
    EXPECT_THAT(read_all({"a\n  "}), testing::ElementsAre(Seen{"a", 1, 1, TOKEN_WORD},
                                                          Seen{"\n", 1, 1, TOKEN_EOL}));
}

TEST(LineReader, TokenLengthLimit)
{
    const uint32_t limit = line_reader_buffer_size() - 1;
    int rc;
    LineReaderStatus status = 0;
    // Split over chunks on purpose: the limit holds for the gathered token.
    std::string word(limit, 'w');
    auto tokens = read_all({word.substr(0, 100), word.substr(100) + "\n"}, &rc, &status);
    EXPECT_EQ(rc, 0);
    ASSERT_EQ(tokens.size(), 2u);
    EXPECT_EQ(tokens[0].text.size(), limit);

    Recorder r;
    auto cb = recorder_callbacks(r);
    PipeFeeder feed({word.substr(0, 10), word.substr(10) + "w\n"});
    errno = 0;
    EXPECT_EQ(read_lines(nullptr, feed.fd(), 5000, &cb, &status), -1);
    EXPECT_EQ(status, LR_TOO_LONG);
    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(r.ends, 1);
    EXPECT_TRUE(r.tokens.empty());
}

TEST(LineReader, TimeOutIsPerWait)
{
    Recorder r;
    auto cb = recorder_callbacks(r);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(write(fds[1], "a\n", 2), 2);
    LineReaderStatus status = 0;
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(read_lines(nullptr, fds[0], 200, &cb, &status), -1);
    auto waited = std::chrono::steady_clock::now() - t0;
    EXPECT_EQ(status, LR_TIMEOUT);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(waited, std::chrono::milliseconds(190));
    EXPECT_EQ(r.tokens.size(), 2u);  // what came before the silence was delivered
    close(fds[0]);
    close(fds[1]);

    // Each wait has its own time-out: slow but steady input is read whole.
    Recorder slow;
    auto slow_cb = recorder_callbacks(slow);
    PipeFeeder feed({"a\n", "b\n", "c\n", "d\n"}, 100);
    EXPECT_EQ(read_lines(nullptr, feed.fd(), 250, &slow_cb, &status), 0);
    EXPECT_EQ(slow.tokens.size(), 8u);
}

TEST(LineReader, CallbackResultsAndStartUpFailures)
{
    Recorder r;
    r.stop_after = 2;
    auto cb = recorder_callbacks(r);
    PipeFeeder feed({"a b c\n"});
    EXPECT_EQ(read_lines(nullptr, feed.fd(), 1000, &cb, nullptr), 0);
    EXPECT_EQ(r.tokens.size(), 2u);
    EXPECT_EQ(r.ends, 1);

    LineReaderStatus status = 0;
    EXPECT_EQ(read_lines("/nonexistent/file", -1, 0, &cb, &status), -1);
    EXPECT_EQ(status, LR_OPEN);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(read_lines(nullptr, -1, 0, &cb, &status), -1);
    EXPECT_EQ(status, LR_BAD_FD);
    LineReaderCallbacks no_token = {nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(read_lines(nullptr, 0, 0, &no_token, &status), -1);
    EXPECT_EQ(status, LR_NO_CALLBACK);

    char empty[] = "/tmp/line_reader_testXXXXXX";
    int empty_fd = mkstemp(empty);
    ASSERT_NE(empty_fd, -1);
    close(empty_fd);
    LineReaderCallbacks failing_begin = cb;
    failing_begin.begin = [](void *) { return -1; };
    Recorder before = r;
    EXPECT_EQ(read_lines(empty, -1, 0, &failing_begin, &status), -1);
    EXPECT_EQ(status, LR_BEGIN);
    EXPECT_EQ(r.ends, before.ends);  // end is not called after a failed begin

    LineReaderCallbacks failing_end = cb;
    failing_end.end = [](void *) { return -1; };
    EXPECT_EQ(read_lines(empty, -1, 0, &failing_end, &status), -1);
    EXPECT_EQ(status, LR_END);
    unlink(empty);
}

// Builds a token list through the standard callbacks.
TokenList collect(const std::string &input, const char *key, std::vector<uint32_t> columns,
                  int *result)
{
    TokenList list;
    TokenCollector c;
    c.list = &list;
    c.key = key;
    for (size_t i = 0; i < columns.size(); i++)
        c.columns[i] = columns[i];
    LineReaderCallbacks cb = {token_list_init, token_list_append, select_columns, &c};
    PipeFeeder feed({input});
    *result = read_lines(nullptr, feed.fd(), 1000, &cb, nullptr);
    return list;
}

std::vector<std::string> texts(const TokenList &l)
{
    std::vector<std::string> v;
    for (const auto &t : l)
        v.push_back(t.text);
    return v;
}

TEST(TokenList, FlagsAndFieldsOfCollectedTokens)
{
    TokenList list;
    TokenCollector c;
    c.list = &list;
    LineReaderCallbacks cb = {token_list_init, token_list_append, nullptr, &c};
    PipeFeeder feed({"lab,/dev/sdb 0000:03:00.0 #main\n\n#c\n"});
    ASSERT_EQ(read_lines(nullptr, feed.fd(), 1000, &cb, nullptr), 0);
    std::vector<std::pair<uint32_t, uint32_t>> got;  // field, flags
    for (const auto &t : list)
        got.emplace_back(t.field, t.flags);
    EXPECT_THAT(got, testing::ElementsAre(std::pair{1u, 0x11u}, std::pair{2u, 0x10u},
                                          std::pair{3u, 0x20u}, std::pair{4u, 0x42u},
                                          std::pair{1u, 0x43u}, std::pair{1u, 0x21u},
                                          std::pair{2u, 0x42u}));
}

TEST(TokenList, SelectColumnsKeepsWantedFieldsOfKeyLines)
{
    int rc;
    EXPECT_THAT(texts(collect("a b\n#c\n", nullptr, {1}, &rc)), testing::ElementsAre("a"));
    EXPECT_EQ(rc, 0);
    // Fields count from the start of the line, words before the key are
    // dropped, and the key word itself stays when its field is wanted.
    EXPECT_THAT(texts(collect("disk a b c d e\nnoise\n  x disk p q r s t\n", "disk", {2, 4, 6},
                              &rc)),
                testing::ElementsAre("a", "c", "e", "disk", "q", "s"));
    EXPECT_EQ(rc, 0);
    // A key line lacking a wanted field fails the filter.
    collect("disk a b c\n", "disk", {2, 4, 6}, &rc);
    EXPECT_EQ(rc, -1);
    collect("a\n", nullptr, {}, &rc);
    EXPECT_EQ(rc, -1);
}

} // namespace
