// The blocks behind TokenText (see token_text.h).
#include "table/token_text.h"

#include <cstring>
#include <new>

namespace {

// Large enough that a table takes a handful of blocks, small enough to stay
// out of the heap's mapped allocations. A longer text gets a block of its own.
constexpr size_t BLOCK_BYTES = 64 * 1024;

struct Block {
    Block *previous;  // every block stays reachable from `blocks`
    // the text bytes follow
};

// Plain values with constant initialisation (as those of TokenTextBlocks):
// nothing here runs at exit, so lists destroyed then may still give their
// texts back.
Block *blocks = nullptr;
using B = TokenTextBlocks;

char *take(size_t n)
{
    if (n > B::room) {
        size_t bytes = n > BLOCK_BYTES ? n : BLOCK_BYTES;
        auto *b = static_cast<Block *>(::operator new(sizeof(Block) + bytes));
        b->previous = blocks;
        blocks = b;
        B::free_at = reinterpret_cast<char *>(b + 1);
        B::room = bytes;
    }
    char *p = B::free_at;
    B::free_at += n;
    B::room -= n;
    return p;
}

// Texts are not given back one by one: a block is reused only once every
// text is gone.
void free_all_blocks()
{
    while (blocks) {
        Block *b = blocks;
        blocks = b->previous;
        ::operator delete(b);
    }
    B::free_at = nullptr;
    B::room = 0;
}

} // namespace

TokenText::TokenText(const TokenText &other) : text_(other.text_), size_(other.size_)
{
    if (size_)
        B::texts_in_use++;
}

TokenText &TokenText::operator=(const TokenText &other)
{
    if (this != &other) {
        if (other.size_)
            B::texts_in_use++;
        release();
        text_ = other.text_;
        size_ = other.size_;
    }
    return *this;
}

TokenText::~TokenText() { release(); }

void TokenText::assign_other(const char *bytes, size_t n)
{
    if (n == 0) {
        release();
        text_ = "";
        size_ = 0;
        return;
    }
    char *p = take(n + 1);  // may throw: nothing has changed yet
    memcpy(p, bytes, n);
    p[n] = '\0';
    B::texts_in_use++;  // before the old text goes, so its release keeps the new block
    release();
    text_ = p;
    size_ = static_cast<uint32_t>(n);
}

void TokenText::release_bytes()
{
    if (--B::texts_in_use == 0)
        free_all_blocks();
}
