// The streaming tokeniser. Input is read in chunks of B bytes; a token may
// span chunks and is gathered in the line buffer (at most B - 1 bytes) before
// it is delivered with its line, column and kind.
#include "table/line_reader.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lib/unique_fd.h"
#include "table/token_list.h"

namespace {

enum class Lexer { idle, word, comment };
enum class CharClass { ordinary, blank, newline, hash };

constexpr CharClass class_of_byte(char c)
{
    switch (c) {
    case ' ':
    case '\t': return CharClass::blank;
    case '\n': return CharClass::newline;
    case '#': return CharClass::hash;
    default: return CharClass::ordinary;
    }
}

// The class of every byte, looked up rather than decided byte by byte.
struct ByteClasses {
    CharClass of[256];
    constexpr ByteClasses() : of()
    {
        for (int c = 0; c < 256; c++)
            of[c] = class_of_byte(static_cast<char>(c));
    }
};
constexpr ByteClasses BYTE_CLASSES;

CharClass classify(char c) { return BYTE_CLASSES.of[static_cast<unsigned char>(c)]; }

bool is_ordinary(char c) { return classify(c) == CharClass::ordinary; }

class Tokeniser {
public:
    Tokeniser(uint32_t capacity, char *line_buffer, const LineReaderCallbacks &cb)
        : capacity_(capacity), line_(line_buffer), cb_(cb)
    {
        line_[0] = '\0';
    }

    // Tokenises one chunk. Returns 1 to go on, 0 when the token callback
    // asked to stop, -1 with *status on failure.
    int feed(char *chunk, size_t n, LineReaderStatus *status)
    {
        size_t start = 0;  // where the current token's bytes begin in this chunk
        size_t i = 0;
        while (i < n) {
            if (size_t k = run_length(chunk, i, n)) {
                // The bytes up to the next one that could end the token are
                // consumed without a decision each: the same columns as
                // taking them one by one.
                column_ = next_column_ + static_cast<uint32_t>(k) - 1;
                next_column_ = column_ + 1;
                i += k;
                continue;
            }
            advance_position();
            char c = chunk[i];
            CharClass cls = classify(c);
            bool consumed = true;
            TokenKind finished = TokenKind(0);
            switch (lexer_) {
            case Lexer::idle:
                if (cls == CharClass::ordinary) {
                    lexer_ = Lexer::word;
                    start = i;
                } else if (cls == CharClass::hash) {
                    lexer_ = Lexer::comment;
                    start = i;
                } else if (cls == CharClass::newline) {
                    start = i;
                    pending_line_ = line_no_ + 1;
                    finished = TOKEN_EOL;
                }
                break;
            case Lexer::word:
                if (cls != CharClass::ordinary) {
                    finished = TOKEN_WORD;
                    consumed = cls == CharClass::blank;
                }
                break;
            case Lexer::comment:
                if (cls == CharClass::newline) {
                    finished = TOKEN_COMMENT;
                    consumed = false;
                }
                break;
            }
            if (finished) {
                // A word or comment ends at the previous byte, an end of line
                // at the newline itself.
                size_t end = finished == TOKEN_EOL ? i + 1 : i;
                size_t len = end > start ? end - start : 0;
                lexer_ = Lexer::idle;
                int r;
                if (line_len_ == 0) {
                    // The whole token lies in this chunk: it is handed on
                    // from there, as the line buffer would hold it.
                    if (len > capacity_ - 1)
                        return too_long(status);
                    r = deliver_in_place(chunk, start, end, finished, status);
                } else {
                    if (!append(chunk + start, len, status))
                        return -1;
                    r = deliver(line_, finished, column_, status);
                }
                if (r <= 0)
                    return r;
                start = i + 1;
            }
            if (consumed) {
                next_column_ = column_ + 1;
                i++;
            }
            if (lexer_ == Lexer::idle)
                start = i;
        }
        if (lexer_ != Lexer::idle) {
            if (!append(chunk + start, n - start, status))
                return -1;
        } else {
            clear_line();
        }
        return 1;
    }

    // End of input. A last line without a newline is finished as if the
    // newline were there: its last word would otherwise vanish from a table
    // that is written back, and an entry appended later would join its line.
    int finish(LineReaderStatus *status)
    {
        uint32_t virtual_column = next_column_;
        if (lexer_ != Lexer::idle) {
            TokenKind kind = lexer_ == Lexer::word ? TOKEN_WORD : TOKEN_COMMENT;
            lexer_ = Lexer::idle;
            int r = deliver(line_, kind, virtual_column, status);
            if (r <= 0)
                return r;
        }
        if (!line_has_tokens_)
            return 1;
        if (!append("\n", 1, status))
            return -1;
        return deliver(line_, TOKEN_EOL, virtual_column, status);
    }

private:
    // Inside a word or comment: how many bytes from i on the lexer would
    // consume without finishing the token (ordinary bytes in a word, all but
    // the newline in a comment), kept short of the largest column.
    size_t run_length(const char *chunk, size_t i, size_t n) const
    {
        if (lexer_ == Lexer::idle || pending_line_ != 1 || next_column_ == 1)
            return 0;
        size_t j = i;
        if (lexer_ == Lexer::word) {
            // Words are most of the bytes: four a step while all of them
            // are ordinary, then byte by byte.
            while (j + 4 <= n && is_ordinary(chunk[j]) && is_ordinary(chunk[j + 1]) &&
                   is_ordinary(chunk[j + 2]) && is_ordinary(chunk[j + 3]))
                j += 4;
            while (j < n && is_ordinary(chunk[j]))
                j++;
        } else {
            const void *eol = memchr(chunk + i, '\n', n - i);
            j = eol ? static_cast<size_t>(static_cast<const char *>(eol) - chunk) : n;
        }
        size_t room = UINT32_MAX - next_column_;
        return j - i < room ? j - i : room;
    }

    void advance_position()
    {
        if (pending_line_ != 1) {
            line_no_ = pending_line_;
            pending_line_ = 1;
            column_ = 1;
            next_column_ = 1;
        } else if (next_column_ != 1) {
            column_ = next_column_;
        }
    }

    int too_long(LineReaderStatus *status)
    {
        *status = LR_TOO_LONG;
        errno = E2BIG;
        return -1;
    }

    bool append(const char *bytes, size_t n, LineReaderStatus *status)
    {
        if (n > capacity_ - 1 - line_len_) {
            too_long(status);
            return false;
        }
        memcpy(line_ + line_len_, bytes, n);
        line_len_ += n;
        line_[line_len_] = '\0';
        return true;
    }

    void clear_line()
    {
        line_len_ = 0;
        line_[0] = '\0';
    }

    // The column is that of the byte that finished the token, less the
    // token's length: a word or comment gets the column of its first byte.
    // The bytes start..end - 1 of the chunk, delivered without the copy to
    // the line buffer: the byte after a word or comment (the one that ended
    // it) is a NUL for the length of the call, and an end of line is "\n".
    int deliver_in_place(char *chunk, size_t start, size_t end, TokenKind kind,
                         LineReaderStatus *status)
    {
        if (kind == TOKEN_EOL)
            return deliver("\n", kind, column_, status);
        char after = chunk[end];
        chunk[end] = '\0';
        int r = deliver(chunk + start, kind, column_, status);
        chunk[end] = after;
        return r;
    }

    int deliver(const char *text, TokenKind kind, uint32_t column, LineReaderStatus *status)
    {
        uint32_t len = static_cast<uint32_t>(strlen(text));
        int r = cb_.token(cb_.user, text, len + 1, line_no_, column - len, kind);
        clear_line();
        line_has_tokens_ = kind != TOKEN_EOL;
        if (r == -1) {
            *status = LR_TOKEN;
            return -1;
        }
        return r == 0 ? 0 : 1;
    }

    const uint32_t capacity_;
    char *const line_;
    size_t line_len_ = 0;
    const LineReaderCallbacks &cb_;
    Lexer lexer_ = Lexer::idle;
    uint32_t line_no_ = 1;
    uint32_t column_ = 1;
    uint32_t next_column_ = 1;
    uint32_t pending_line_ = 1;
    bool line_has_tokens_ = false;
};

} // namespace

uint32_t line_reader_buffer_size()
{
    long max = sysconf(_SC_LINE_MAX);
    return max >= 1 && max <= 4096 ? static_cast<uint32_t>(max) : 4096;
}

int read_lines(const char *path, int fd, int32_t timeout_ms,
               const LineReaderCallbacks *callbacks, LineReaderStatus *status)
{
    int saved_errno = errno;
    LineReaderStatus st = 0;
    auto fail = [&](LineReaderStatus s) {
        if (status)
            *status = s;
        return -1;
    };
    if (!callbacks || !callbacks->token) {
        errno = EINVAL;
        return fail(LR_NO_CALLBACK);
    }
    UniqueFd owned;  // a descriptor the reader opened itself
    if (path) {
        // Every input named by a path is a file. A FIFO or a device node
        // in its place could hold the run up before any time-out applies
        // (the open of a FIFO waits for a writer) or feed it without end,
        // so it is opened without waiting and refused as unopenable.
        owned.reset(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        if (!owned)
            return fail(LR_OPEN);
        struct stat file;
        if (fstat(owned.get(), &file) == -1)
            return fail(LR_OPEN);
        if (S_ISFIFO(file.st_mode) || S_ISCHR(file.st_mode) || S_ISBLK(file.st_mode)) {
            errno = EINVAL;
            return fail(LR_OPEN);
        }
        fd = owned.get();
    } else if (fd < 0) {
        errno = EINVAL;
        return fail(LR_BAD_FD);
    }

    const uint32_t capacity = line_reader_buffer_size();
    std::unique_ptr<char[]> chunk(new (std::nothrow) char[capacity]);
    if (!chunk) {
        errno = ENOMEM;
        return fail(LR_NO_CHUNK);
    }
    std::unique_ptr<char[]> line(new (std::nothrow) char[capacity]());
    if (!line) {
        errno = ENOMEM;
        return fail(LR_NO_LINE);
    }
    std::unique_ptr<Tokeniser> lexer(new (std::nothrow) Tokeniser(capacity, line.get(), *callbacks));
    if (!lexer) {
        errno = ENOMEM;
        return fail(LR_NO_STATE);
    }

    if (callbacks->begin && callbacks->begin(callbacks->user) == -1)
        return fail(LR_BEGIN);

    // After start-up a failure still runs the end callback (its result is
    // ignored) so the owner of the list can tidy up.
    auto fail_after_start = [&](LineReaderStatus s) {
        int err = errno;
        if (callbacks->end)
            callbacks->end(callbacks->user);
        errno = err;
        return fail(s);
    };

    for (;;) {
        struct pollfd p = {fd, POLLIN | POLLPRI, 0};
        int ready = poll(&p, 1, timeout_ms);
        if (ready == -1)
            return fail_after_start(LR_POLL);
        if (ready == 0 && timeout_ms != 0) {
            errno = ETIMEDOUT;
            return fail_after_start(LR_TIMEOUT);
        }
        ssize_t n = read(fd, chunk.get(), capacity);
        if (n == -1)
            return fail_after_start(LR_READ);
        if (n == 0) {
            int r = lexer->finish(&st);
            if (r == -1)
                return fail_after_start(st);
            break;
        }
        int r = lexer->feed(chunk.get(), static_cast<size_t>(n), &st);
        if (r == -1)
            return fail_after_start(st);
        if (r == 0)
            break;
    }

    if (callbacks->end && callbacks->end(callbacks->user) == -1)
        return fail(LR_END);
    errno = saved_errno;
    return 0;
}
