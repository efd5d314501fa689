#include "engine/RelayBlockPool.h"

#include <new>

namespace quillon {

// The deleter of a pooled block: gives the bytes back instead of freeing them.
struct RelayBlockPool::Recycle {
    std::shared_ptr<RelayBlockPool> pool;
    void operator()(const Bytes* block) const { pool->recycle(const_cast<Bytes*>(block)); }
};

// Allocates the control block of a pooled block from the pool's free list.
// Each copy keeps the pool alive, also the one that frees the control block.
template <typename T>
struct RelayBlockPool::ControlAllocator {
    using value_type = T;
    std::shared_ptr<RelayBlockPool> pool;

    explicit ControlAllocator(std::shared_ptr<RelayBlockPool> p) : pool(std::move(p)) {}
    template <typename U>
    ControlAllocator(const ControlAllocator<U>& other) : pool(other.pool) {}

    T* allocate(std::size_t n) { return static_cast<T*>(pool->takeControl(n * sizeof(T))); }
    void deallocate(T* p, std::size_t n) { pool->giveControl(p, n * sizeof(T)); }
    template <typename U>
    bool operator==(const ControlAllocator<U>& other) const {
        return pool == other.pool;
    }
};

std::shared_ptr<RelayBlockPool> RelayBlockPool::create() {
    return std::shared_ptr<RelayBlockPool>(new RelayBlockPool());
}

RelayBlockPool::~RelayBlockPool() {
    for (void* memory : controls_) ::operator delete(memory);
}

std::shared_ptr<const Bytes> RelayBlockPool::make(std::span<const std::uint8_t> bytes) {
    std::unique_ptr<Bytes> block;
    {
        std::lock_guard lock(mutex_);
        if (!blocks_.empty()) {
            block = std::move(blocks_.back());
            blocks_.pop_back();
        }
    }
    if (!block) block = std::make_unique<Bytes>();
    block->assign(bytes.begin(), bytes.end());  // within its capacity once warm
    auto self = shared_from_this();
    return std::shared_ptr<const Bytes>(block.release(), Recycle{self}, ControlAllocator<char>(self));
}

void RelayBlockPool::recycle(Bytes* block) {
    std::unique_ptr<Bytes> owned(block);
    std::lock_guard lock(mutex_);
    try {
        blocks_.push_back(std::move(owned));
    } catch (const std::bad_alloc&) {
        // No room to keep it: the block is freed instead.
    }
}

void* RelayBlockPool::takeControl(std::size_t size) {
    {
        std::lock_guard lock(mutex_);
        if (size == controlSize_ && !controls_.empty()) {
            void* memory = controls_.back();
            controls_.pop_back();
            return memory;
        }
        if (controlSize_ == 0) controlSize_ = size;
    }
    return ::operator new(size);
}

void RelayBlockPool::giveControl(void* memory, std::size_t size) {
    {
        std::lock_guard lock(mutex_);
        if (size == controlSize_) {
            try {
                controls_.push_back(memory);
                return;
            } catch (const std::bad_alloc&) {
                // No room to keep it: freed below.
            }
        }
    }
    ::operator delete(memory);
}

std::size_t RelayBlockPool::freeBlocks() const {
    std::lock_guard lock(mutex_);
    return blocks_.size();
}

std::size_t RelayBlockPool::freeControls() const {
    std::lock_guard lock(mutex_);
    return controls_.size();
}

}  // namespace quillon
