// The texts of string values.
//
// A text lies in a block of its own and never changes; a string item is overwritten by replacing
// the block. Readers that copy or parse a text do so inside a StringReader; a block that was
// replaced is used again only when no reader is left that may have seen it.
//
// Readers announce themselves in one of two counters, chosen by the parity of the epoch. Blocks
// retired in an epoch wait until the counter of that parity has run empty, while new readers
// already count in the other one; so no stream of readers, however dense, can keep blocks alive
// for ever, and no reader ever waits.
//
// Blocks of ordinary size are kept by size for texts to come, so overwriting texts settles to no
// heap allocation at all.
//
// Threads: everything from any thread.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace vorn::dictionary {

struct StringBlock {
    StringBlock* next; // while it waits or is free
    uint8_t sizeClass;
    char text[1]; // zero-terminated, as long as it takes

    // What a string item holds: the address of its block; 0 stands for the empty string.
    static const char* textOf(uint64_t payload) {
        return payload ? fromPayload(payload)->text : "";
    }
    static StringBlock* fromPayload(uint64_t payload) {
        return reinterpret_cast<StringBlock*>(payload); // NOLINT(performance-no-int-to-ptr)
    }
};

class StringStore {
public:
    StringStore() = default;
    StringStore(const StringStore&) = delete;
    StringStore& operator=(const StringStore&) = delete;
    ~StringStore() {
        release();
    }

    // Makes *payload what a string item holds for a copy of text; null counts as "". False when
    // memory is exhausted.
    bool create(const char* text, uint64_t* payload) {
        if (!text || !*text) {
            *payload = 0;
            return true;
        }
        const size_t length = std::strlen(text);
        StringBlock* block = _allocate(offsetof(StringBlock, text) + length + 1);
        if (!block) {
            return false;
        }
        std::memcpy(block->text, text, length + 1);
        *payload = reinterpret_cast<uintptr_t>(block);
        return true;
    }

    // Takes back the block of a payload that was never stored.
    void discard(uint64_t payload) {
        if (payload) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            _recycle(StringBlock::fromPayload(payload));
        }
    }

    // Takes back the block of a payload that no item holds any more, for use when no reader may
    // hold it.
    void retire(uint64_t payload) {
        if (!payload) {
            return;
        }
        StringBlock* block = StringBlock::fromPayload(payload);
        const std::lock_guard<std::mutex> lock(m_mutex);
        block->next = m_retired;
        m_retired = block;
        const uint64_t epoch = m_epoch.load(std::memory_order_relaxed);
        if (m_readers[(epoch + 1) & 1].count.load(std::memory_order_seq_cst) == 0) {
            // Nobody is left from the epoch before: its blocks are free, this epoch's begin to
            // wait.
            while (m_waiting) {
                StringBlock* next = m_waiting->next;
                _recycle(m_waiting);
                m_waiting = next;
            }
            m_waiting = m_retired;
            m_retired = nullptr;
            m_epoch.store(epoch + 1, std::memory_order_seq_cst);
        }
    }

    // Gives every block that no item holds back to the system. REQUIRES: no readers.
    void release() {
        _freeAll(m_waiting);
        _freeAll(m_retired);
        for (StringBlock*& first : m_free) {
            _freeAll(first);
        }
    }

private:
    friend class StringReader;

    // Blocks of size class k have 32 << k bytes, less what malloc adds to fill them.
    static constexpr size_t kSizeClasses = 8;
    static constexpr size_t kMallocOverhead = 8;
    static constexpr size_t _sizeOf(size_t sizeClass) {
        return (size_t{32} << sizeClass) - kMallocOverhead;
    }

    struct alignas(64) ReaderCount {
        std::atomic<uint32_t> count{0};
    };

    // A block of at least that many bytes, or null.
    StringBlock* _allocate(size_t size) {
        size_t sizeClass = 0;
        while (sizeClass < kSizeClasses && _sizeOf(sizeClass) < size) {
            ++sizeClass;
        }
        if (sizeClass < kSizeClasses) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (StringBlock* block = m_free[sizeClass]) {
                m_free[sizeClass] = block->next;
                return block;
            }
            size = _sizeOf(sizeClass);
        }
        auto* block = static_cast<StringBlock*>(std::malloc(size));
        if (block) {
            block->sizeClass = static_cast<uint8_t>(sizeClass);
        }
        return block;
    }

    // Keeps a block for use again, or frees one that is too large for that. Under the mutex.
    void _recycle(StringBlock* block) {
        if (block->sizeClass == kSizeClasses) {
            std::free(block);
        } else {
            block->next = m_free[block->sizeClass];
            m_free[block->sizeClass] = block;
        }
    }

    static void _freeAll(StringBlock*& first) {
        while (first) {
            StringBlock* next = first->next;
            std::free(first);
            first = next;
        }
    }

    std::array<ReaderCount, 2> m_readers; // by parity of the epoch they began in
    std::atomic<uint64_t> m_epoch{0};
    std::mutex m_mutex;               // guards the lists; no other lock is taken under it
    StringBlock* m_retired = nullptr; // of this epoch
    StringBlock* m_waiting = nullptr; // of the epoch before
    StringBlock* m_free[kSizeClasses] = {};
};

// While it lives, every text that a string item is seen to hold stays readable.
class StringReader {
public:
    explicit StringReader(StringStore& store) {
        for (;;) {
            const uint64_t epoch = store.m_epoch.load(std::memory_order_seq_cst);
            m_count = &store.m_readers[epoch & 1].count;
            m_count->fetch_add(1, std::memory_order_seq_cst);
            if (store.m_epoch.load(std::memory_order_seq_cst) == epoch) {
                return;
            }
            m_count->fetch_sub(1, std::memory_order_release);
        }
    }
    ~StringReader() {
        m_count->fetch_sub(1, std::memory_order_release);
    }
    StringReader(const StringReader&) = delete;
    StringReader& operator=(const StringReader&) = delete;

private:
    std::atomic<uint32_t>* m_count;
};

} // namespace vorn::dictionary
