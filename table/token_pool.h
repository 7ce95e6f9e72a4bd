// The allocator of token lists. A table of ten thousand lines is twenty
// thousand tokens or more, each one list node; taking the nodes from blocks
// of many costs a fraction of one heap allocation each. A freed node goes
// back to the pool for the next one; the blocks are kept until the process
// ends, as the lists are. Single-threaded, as the tool is.
#pragma once

#include <cstddef>
#include <new>

// Nodes of one size and alignment, in blocks of NODES_PER_BLOCK.
template <size_t Size, size_t Align>
class NodePool {
public:
    static void *take()
    {
        if (!free_)
            add_block();  // throws std::bad_alloc like operator new
        Slot *s = free_;
        free_ = s->next;
        return s;
    }
    static void give(void *p)
    {
        auto *s = static_cast<Slot *>(p);
        s->next = free_;
        free_ = s;
    }

private:
    union Slot {
        Slot *next;
        alignas(Align) unsigned char bytes[Size];
    };
    static constexpr size_t NODES_PER_BLOCK = 256;
    struct Block {
        Block *previous;  // every block stays reachable from blocks_
        Slot slots[NODES_PER_BLOCK];
    };

    static void add_block()
    {
        auto *b = static_cast<Block *>(::operator new(sizeof(Block)));
        b->previous = blocks_;
        blocks_ = b;
        for (size_t i = NODES_PER_BLOCK; i-- > 0;)
            give(&b->slots[i]);
    }

    static inline Slot *free_ = nullptr;
    static inline Block *blocks_ = nullptr;
};

template <typename T>
struct PoolAllocator {
    using value_type = T;

    PoolAllocator() = default;
    template <typename U>
    PoolAllocator(const PoolAllocator<U> &) noexcept
    {
    }

    T *allocate(size_t n)
    {
        if (n != 1)
            return static_cast<T *>(::operator new(n * sizeof(T)));
        return static_cast<T *>(NodePool<sizeof(T), alignof(T)>::take());
    }
    void deallocate(T *p, size_t n) noexcept
    {
        if (n != 1)
            ::operator delete(p);
        else
            NodePool<sizeof(T), alignof(T)>::give(p);
    }

    template <typename U>
    bool operator==(const PoolAllocator<U> &) const noexcept
    {
        return true;
    }
};
