#pragma once

#include <QtGlobal>

#include <cstddef>
#include <mutex>
#include <vector>

// Memory for blocks of one size, carved from 2 MiB chunks that ask the kernel for huge pages,
// and kept for the next block when one is given back. Connection items live here: a refresh of
// a hundred thousand sockets visits every item, and items spread over a general-purpose heap
// in 4 KiB pages outrun the processor's address translation cache; a connection that opens
// also takes the room of one that just closed, with no search of the allocator's bins.
//
// Chunks are never returned to the system: the arena holds as much as the most items alive at
// once needed. Blocks may be given back from any thread.
class ItemArena final {
public:
    // Blocks of `blockSize` bytes (at least a pointer), each on a 64-byte boundary.
    explicit ItemArena(size_t blockSize);
    ~ItemArena();
    Q_DISABLE_COPY_MOVE(ItemArena)

    // Throws std::bad_alloc when the system has no memory left.
    void* allocate();
    void deallocate(void* block) noexcept;

    size_t blockSize() const { return m_blockSize; }
    // Chunks taken from the system so far.
    size_t chunkCount() const;

    static constexpr size_t kChunkSize = size_t(2) << 20;

private:
    void addChunk();

    const size_t m_blockSize;
    mutable std::mutex m_lock;
    void* m_free = nullptr; // given-back blocks, each holding the next one's address
    char* m_cursor = nullptr;
    char* m_end = nullptr;
    std::vector<void*> m_chunks;
};
