#pragma once
// The track file writer: a delay line that keeps the most recent half of its
// capacity (30 s of a 60 s capacity) in memory and writes only older audio to
// the current file, so that a title change, which arrives while the end of the
// old track is still held, can be cut at the right byte. Each announced file
// gets the audio between its cut and the next; cuts are shifted by the record
// offset in seconds (negative: earlier).
//
// The held audio lives in a ring that grows (by half) as the held audio needs,
// up to the delay line plus a burst and a block, and past that only while cuts
// pending far ahead hold more: appending and writing move each byte once, and
// a long recording keeps the same storage.
//
// In an ADTS AAC stream a cut moves forward to the next frame start (at most
// AdtsSync::kSearchWindow bytes), waiting for the audio that tells where that
// is, so that every file after the first begins with a whole frame. Deliberate:
// MP3 cuts stay at their byte, because MP3 decoders skip a partial frame and
// the byte-exact cut is what the record offset promises.
//
// In an Ogg stream (Vorbis, Opus) a cut moves forward to the next page start
// (OggPages), and each file after the first begins with the stream's header
// pages as the bytes written so far showed them (OggHeaders), then its audio
// from that page on: a decoder needs both. The replayed pages are an addition
// at the head of the file, like an ID3 tag; every received byte still goes to
// exactly one file. A cut that lands on a BOS page (a new link of a chained
// stream) needs no replay: the file begins with that link's own headers.
// Header pages past OggHeaders::kDefaultLimit are not replayed (logged once).
//
// Thread contract: the connection thread calls addData; the track switch
// (setNewFileHandle) may run on the connection thread or on the main thread,
// so one mutex guards the ring, the current file, the pending cuts and the
// Ogg header pages kept.
// bufferSize and filledValue are lock-free (atomics) for the user interface.
// A finished file is flushed to disk and closed on the writer's closer thread
// (started at the first cut; `closeMutex_` guards its queue), so that the
// reader does not wait for the disk at every cut. Every byte of the file is
// written before it is handed over; destruction waits until every finished
// file is flushed and closed. At most kMaxClosing files wait to be closed.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "engine/AudioFormat.h"
#include "engine/OggHeaders.h"
#include "platform/ByteBuffer.h"
#include "platform/FileHandle.h"

namespace quillon {

class QLNBuffer {
public:
    // The name of the failure raised when audio cannot reach the disk.
    static constexpr const char* kDiskError = "Disk error";
    // Writes are batched: nothing goes to the file until the held bytes exceed
    // the delay line by more than this.
    static constexpr std::int64_t kWriteSlack = 16384;
    // Room for one block beyond the delay line and a burst.
    static constexpr std::size_t kBlockAllowance = 65536;
    // Finished files that may wait for the closer thread at once.
    static constexpr std::size_t kMaxClosing = 32;
    // The ring's first size.
    static constexpr std::size_t kMinRing = 65536;

    QLNBuffer(unsigned seconds, int offset);
    ~QLNBuffer();
    QLNBuffer(const QLNBuffer&) = delete;
    QLNBuffer& operator=(const QLNBuffer&) = delete;

    // Sizes the writer for the stream's bit rate in kbit/s (0 counts as 128);
    // the format decides whether cuts look for frame starts.
    void initValues(unsigned bitrate, AudioFormat format = AudioFormat::mp3);
    // Appends one audio block, then either performs the first pending cut once
    // it is reached or writes everything older than the delay line. A failed
    // write or a file that could not be flushed to disk raises "Disk error".
    void addData(std::span<const std::uint8_t> block);
    // The first file of the writer's life is taken at once; every later one is
    // scheduled as a cut `offset` seconds after the audio received so far.
    void setNewFileHandle(FileHandle file);
    // Writes the front `count` bytes to the current file, hands it to the
    // closer thread to be flushed to disk and closed, and moves to the next
    // pending file (the null device when none is pending).
    void flushBuffer(std::int64_t count);
    // Writes out everything held: each pending cut that the held audio
    // reaches is made, the rest goes to the current file, and every file is
    // handed to the closer thread. The writer takes no more audio after it.
    void finish();
    // Takes the front `count` bytes. Raises "QLN BUFFER INCONSISTENT VALUE" for
    // a negative count and "not enough data" for more than is held.
    Bytes getData(std::int64_t count);

    // Bytes held at present (not the capacity).
    std::size_t bufferSize() const { return held_.load(std::memory_order_relaxed); }
    // How full the delay line is, 0-100.
    unsigned filledValue() const;

    // Capacity in bytes: bit rate x seconds x 125.
    std::uint32_t capacity() const { return capacity_.load(std::memory_order_relaxed); }
    // Bytes from the announcement of a file to its cut.
    std::int64_t flushSize() const;
    // Pending cut positions, as offsets from the front of the held bytes.
    std::vector<std::int64_t> pendingCuts() const;
    bool hasFileHandle() const;
    // Bytes of storage the ring has at present.
    std::size_t storageSize() const;

private:
    // Caller holds mutex_. Raises the getData failures for a count out of range.
    void requireCount(std::int64_t count) const;
    // Caller holds mutex_ and has checked the count.
    void writeFront(std::size_t count);
    void flushBufferLocked(std::int64_t count);
    // Where a cut is made, and whether the file it begins starts with the
    // replayed Ogg header pages.
    struct Cut {
        std::int64_t position = 0;
        bool replayHeaders = false;
    };
    // Where the cut wanted at `position` is made: there, or for ADTS at the
    // next frame start, for Ogg at the next page start; none while the held
    // audio cannot tell yet (never when `complete`). Caller holds mutex_.
    std::optional<Cut> cutAt(std::int64_t position, bool complete) const;
    // Makes the cut: the front `count` bytes to the current file, then the
    // next file, with the header pages ahead of its audio when `replay`.
    void cutLocked(const Cut& cut);
    // A copy of `count` held bytes from `from` on. Caller holds mutex_.
    Bytes heldCopy(std::size_t from, std::size_t count) const;
    void updateHeld() { held_.store(size_, std::memory_order_relaxed); }

    // The ring; callers hold mutex_.
    void ringAppend(std::span<const std::uint8_t> bytes);
    void ringReserve(std::size_t bytes);
    void ringDrop(std::size_t count);
    // The front `count` held bytes as at most two spans, in order.
    std::span<const std::uint8_t> frontFirst(std::size_t count) const;
    std::span<const std::uint8_t> frontSecond(std::size_t count) const;

    // Closer thread: hands a finished file over; the loop flushes and closes.
    void retire(FileHandle file);
    // Raises the closer thread's failure, if any, on the writing thread.
    void raiseCloseError();
    void closeLoop();

    // The ring's memory: pages of its own, mapped directly, so that a ring
    // given up on growth goes back to the system at once instead of staying in
    // the allocator's arenas. Move-only owner of the mapping.
    class Pages {
    public:
        Pages() = default;
        explicit Pages(std::size_t bytes);  // rounded up to whole pages; throws std::bad_alloc
        ~Pages();
        Pages(Pages&& other) noexcept;
        Pages& operator=(Pages&& other) noexcept;
        std::uint8_t* data() const { return data_; }
        std::size_t size() const { return size_; }

    private:
        std::uint8_t* data_ = nullptr;
        std::size_t size_ = 0;
    };

    mutable std::mutex mutex_;
    Pages ring_;
    std::size_t ringSize_ = 0;
    std::size_t ringTarget_ = 0;  // where growth pauses; set by initValues
    std::size_t head_ = 0;        // index of the oldest held byte
    std::size_t size_ = 0;        // bytes held
    const unsigned bufferSeconds_;
    std::atomic<std::uint32_t> capacity_{0};
    const int bufferOffset_;
    bool alignAdts_ = false;
    std::optional<OggHeaders> oggHeaders_;  // set for Ogg streams
    bool oggOverflowLogged_ = false;
    std::int64_t flushSize_ = 0;
    FileHandle filehandle_;
    bool shouldSetNewFileHandle_ = true;
    std::deque<std::int64_t> flushEvents_;
    std::deque<FileHandle> pendingFiles_;
    std::atomic<std::size_t> held_{0};

    std::mutex closeMutex_;
    std::condition_variable closeWake_;
    std::deque<FileHandle> closing_;
    bool closerStop_ = false;
    bool closingBusy_ = false;  // the closer thread is flushing a file
    std::string closeError_;    // a finished file that failed to reach the disk
    std::thread closer_;        // declared last: joined before the rest goes
};

}  // namespace quillon
