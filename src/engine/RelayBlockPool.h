#pragma once
// Read-only audio blocks for the relay, made without allocating once warm: a
// block's bytes and its shared_ptr control block come back to the pool when
// the last player lets go of it, and the next block reuses them. The pool
// therefore holds as many blocks as were ever in flight at once (the relay
// keeps about eight per player); it never shrinks.
//
// Thread contract: make() runs on the connection's reader thread; blocks are
// released on any thread (the relay's feed and player threads). `mutex_`
// guards both free lists. Every block keeps the pool alive, so blocks may
// outlive the connection that made them.
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "platform/ByteBuffer.h"

namespace quillon {

class RelayBlockPool : public std::enable_shared_from_this<RelayBlockPool> {
public:
    static std::shared_ptr<RelayBlockPool> create();
    ~RelayBlockPool();
    RelayBlockPool(const RelayBlockPool&) = delete;
    RelayBlockPool& operator=(const RelayBlockPool&) = delete;

    // A block holding a copy of `bytes`.
    std::shared_ptr<const Bytes> make(std::span<const std::uint8_t> bytes);

    // Blocks and control blocks waiting for reuse.
    std::size_t freeBlocks() const;
    std::size_t freeControls() const;

private:
    RelayBlockPool() = default;

    struct Recycle;
    template <typename T>
    struct ControlAllocator;

    void recycle(Bytes* block);
    void* takeControl(std::size_t size);
    void giveControl(void* memory, std::size_t size);

    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<Bytes>> blocks_;
    std::vector<void*> controls_;
    std::size_t controlSize_ = 0;  // the one size of control block made here
};

}  // namespace quillon
