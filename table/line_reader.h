// The streaming tokeniser through which every text input passes: it waits for
// data with a per-wait time-out, splits the bytes into words, comments and
// ends of line, and hands each finished token to a callback.
#pragma once

#include <cstdint>

struct LineReaderCallbacks {
    int (*begin)(void *user);  // may be null; -1 = failure
    // -1 failure, 0 stop reading, anything else goes on
    int (*token)(void *user, const char *text, uint32_t size, uint32_t line,
                 uint32_t column, uint32_t kind);
    int (*end)(void *user);    // may be null; -1 = failure
    void *user;
};

// Status word stored by read_lines on failure.
using LineReaderStatus = uint32_t;
constexpr LineReaderStatus LR_NO_CALLBACK = 4;
constexpr LineReaderStatus LR_OPEN = 5;
constexpr LineReaderStatus LR_BAD_FD = 6;
constexpr LineReaderStatus LR_BEGIN = 7;
constexpr LineReaderStatus LR_POLL = 8;
constexpr LineReaderStatus LR_TIMEOUT = 9;
constexpr LineReaderStatus LR_READ = 10;
constexpr LineReaderStatus LR_TOKEN = 11;
constexpr LineReaderStatus LR_END = 12;
constexpr LineReaderStatus LR_NO_CHUNK = 0x200001;
constexpr LineReaderStatus LR_NO_STATE = 0x200002;
constexpr LineReaderStatus LR_NO_LINE = 0x200401;
constexpr LineReaderStatus LR_TOO_LONG = 0x300003;

// Reads `path` (opened read-only and closed again) or, when path is null, the
// open descriptor fd (left open). timeout_ms: the longest wait for each chunk
// of input; 0 means no time-out, a negative value waits without limit.
// Returns 0, or -1 with *status (when given) and errno set.
int read_lines(const char *path, int fd, int32_t timeout_ms,
               const LineReaderCallbacks *callbacks, LineReaderStatus *status);

// The reader's buffer size B: a token holds at most B - 1 bytes.
uint32_t line_reader_buffer_size();
