// The text of a token. A table of ten thousand lines holds thirty thousand
// texts of about a dozen bytes: a heap allocation for each one longer than
// std::string keeps inline, and the 32 bytes of a std::string in every
// token, were a good part of the cost of loading it (the memory that must
// be faulted in counts as much as the instructions). A TokenText is a
// pointer and a length; its bytes, NUL-terminated, are taken from shared
// blocks by bumping a pointer and are never changed: a new text (a changed
// label) gets new bytes, and a copy of a token shares the bytes of the
// original. The blocks go back to the heap when no text uses them any more,
// so a program that builds and drops lists again and again does not grow;
// the tool's own lists live until it ends. Single-threaded, as the tool is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// The block being filled, shared by all texts; token_text.cpp keeps the
// list of blocks. Here so that the common case of assign() is inline.
struct TokenTextBlocks {
    static inline char *free_at = nullptr;
    static inline size_t room = 0;
    static inline size_t texts_in_use = 0;  // texts with bytes in a block
};

class TokenText {
public:
    TokenText() = default;
    TokenText(const TokenText &other);
    TokenText &operator=(const TokenText &other);
    ~TokenText();

    // Replaces the text with a copy of n bytes. Throws std::bad_alloc, like
    // std::string, when no block can be had; the text is then unchanged.
    void assign(const char *bytes, size_t n)
    {
        using B = TokenTextBlocks;
        if (n == 0 || n >= B::room) {
            assign_other(bytes, n);
            return;
        }
        char *p = B::free_at;
        B::free_at += n + 1;
        B::room -= n + 1;
        memcpy(p, bytes, n);
        p[n] = '\0';
        B::texts_in_use++;  // before the old text goes, so its release keeps the block
        release();
        text_ = p;
        size_ = static_cast<uint32_t>(n);
    }
    TokenText &operator=(std::string_view s)
    {
        assign(s.data(), s.size());
        return *this;
    }

    const char *c_str() const { return text_; }
    const char *data() const { return text_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    char operator[](size_t i) const { return text_[i]; }
    operator std::string_view() const { return {text_, size_}; }
    operator std::string() const { return {text_, size_}; }
    bool operator==(std::string_view s) const { return std::string_view(*this) == s; }

private:
    void release()
    {
        if (size_)
            release_bytes();
    }
    static void release_bytes();
    void assign_other(const char *bytes, size_t n);  // empty, or a new block

    // An empty text is the static "" and uses no block.
    const char *text_ = "";
    uint32_t size_ = 0;  // bytes before the terminating NUL
};
