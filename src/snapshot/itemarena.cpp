#include "itemarena.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <new>

namespace {

constexpr size_t kAlignment = 64;

} // namespace

ItemArena::ItemArena(size_t blockSize)
    : m_blockSize((std::max(blockSize, sizeof(void*)) + kAlignment - 1) & ~(kAlignment - 1))
{
}

ItemArena::~ItemArena()
{
    for (void* chunk : m_chunks)
        munmap(chunk, kChunkSize);
}

void* ItemArena::allocate()
{
    std::lock_guard guard(m_lock);
    if (m_free) {
        void* block = m_free;
        m_free = *static_cast<void**>(block);
        return block;
    }
    if (m_blockSize > kChunkSize)
        throw std::bad_alloc();
    if (m_cursor + m_blockSize > m_end)
        addChunk();
    void* block = m_cursor;
    m_cursor += m_blockSize;
    return block;
}

void ItemArena::deallocate(void* block) noexcept
{
    if (!block)
        return;
    std::lock_guard guard(m_lock);
    *static_cast<void**>(block) = m_free;
    m_free = block;
}

size_t ItemArena::chunkCount() const
{
    std::lock_guard guard(m_lock);
    return m_chunks.size();
}

void ItemArena::addChunk()
{
    // Twice the size, so that a 2 MiB boundary falls inside; the rest goes back at once. Only
    // a chunk on that boundary can be one huge page.
    const size_t span = 2 * kChunkSize;
    m_chunks.reserve(m_chunks.size() + 1);
    void* raw = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED)
        throw std::bad_alloc();
    const auto start = reinterpret_cast<std::uintptr_t>(raw);
    const std::uintptr_t aligned = (start + kChunkSize - 1) & ~std::uintptr_t(kChunkSize - 1);
    if (const size_t head = aligned - start; head > 0)
        munmap(raw, head);
    if (const size_t tail = start + span - (aligned + kChunkSize); tail > 0)
        munmap(reinterpret_cast<void*>(aligned + kChunkSize), tail);
    char* chunk = reinterpret_cast<char*>(aligned);
    // A request, not a promise: without huge pages the chunk still serves.
    madvise(chunk, kChunkSize, MADV_HUGEPAGE);
    m_chunks.push_back(chunk);
    m_cursor = chunk;
    m_end = chunk + kChunkSize;
}
