// The texts of string values.
//
// A text lies in a block of its own and never changes; a string item is overwritten by replacing
// the block. Readers that copy or parse a text do so inside a StringReader; a block that was
// replaced is freed only when no reader is left that may have seen it.
//
// Readers announce themselves in one of two counters, chosen by the parity of the epoch. Blocks
// retired in an epoch wait until the counter of that parity has run empty, while new readers
// already count in the other one; so no stream of readers, however dense, can keep blocks alive
// for ever, and no reader ever waits.
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
    StringBlock* next; // list of blocks about to be stored, or waiting to be freed
    char text[1];      // zero-terminated, as long as it takes

    // Makes *payload what a string item holds for a copy of text; null counts as "". False when
    // memory is exhausted.
    static bool create(const char* text, uint64_t* payload) {
        if (!text || !*text) {
            *payload = 0;
            return true;
        }
        const size_t size = std::strlen(text) + 1;
        auto* block = static_cast<StringBlock*>(std::malloc(offsetof(StringBlock, text) + size));
        if (!block) {
            return false;
        }
        block->next = nullptr;
        std::memcpy(block->text, text, size);
        *payload = reinterpret_cast<uintptr_t>(block);
        return true;
    }

    // Frees the block of a payload that was never stored.
    static void discard(uint64_t payload) {
        std::free(fromPayload(payload));
    }

    // Frees a list of blocks.
    static void destroyAll(StringBlock* first) {
        while (first) {
            StringBlock* next = first->next;
            std::free(first);
            first = next;
        }
    }

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

    // Frees the block of a payload that no item holds any more, as soon as no reader may hold it.
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
            // Nobody is left from the epoch before: its blocks go, this epoch's begin to wait.
            StringBlock::destroyAll(m_waiting);
            m_waiting = m_retired;
            m_retired = nullptr;
            m_epoch.store(epoch + 1, std::memory_order_seq_cst);
        }
    }

    // Frees every retired block. REQUIRES: no readers.
    void release() {
        StringBlock::destroyAll(m_waiting);
        StringBlock::destroyAll(m_retired);
        m_waiting = m_retired = nullptr;
    }

private:
    friend class StringReader;

    struct alignas(64) ReaderCount {
        std::atomic<uint32_t> count{0};
    };

    std::array<ReaderCount, 2> m_readers; // by parity of the epoch they began in
    std::atomic<uint64_t> m_epoch{0};
    std::mutex m_mutex;               // guards the lists; never held while other locks are taken
    StringBlock* m_retired = nullptr; // of this epoch
    StringBlock* m_waiting = nullptr; // of the epoch before
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
