#pragma once
// Hands finished tracks to the music library, each on a thread of its own, so
// that a slow or absent library never delays a connection or the main thread.
// Several hand-offs may run at once; at most kMaxRunning, past which a hand-off
// is dropped with a warning rather than piling up threads. Each outcome is
// logged ("Add to iTunes playlist error : ..." on failure).
//
// The back-end is made anew for each hand-off by the factory, on the hand-off
// thread, so a changed preference counts from the next track on.
//
// Thread contract: addTrack from any thread (connection threads, the main
// thread); it only starts a thread, under a mutex that the hand-off threads
// take only to report that they are done. The destructor (not on a hand-off
// thread) waits for every running hand-off; each is bounded by its back-end's
// time-outs.
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "engine/MusicLibrary.h"

namespace quillon {

class LibraryHandOff {
public:
    static constexpr std::size_t kMaxRunning = 16;

    // Makes the back-end (on the hand-off thread); nothing, with the reason, when it cannot.
    using Factory = std::function<std::unique_ptr<MusicLibrary>(std::string& failure)>;
    // Told each outcome, on the hand-off thread.
    using Done = std::function<void(const std::string& path, const std::string& playlist,
                                    const MusicLibrary::Result& result)>;

    explicit LibraryHandOff(Factory factory, Done done = {});
    ~LibraryHandOff();
    LibraryHandOff(const LibraryHandOff&) = delete;
    LibraryHandOff& operator=(const LibraryHandOff&) = delete;

    // Starts the hand-off of `path` to `playlist` and returns.
    void addTrack(const std::string& path, const std::string& playlist);
    // Blocks until no hand-off runs.
    void waitUntilIdle();

    // A connection's hand-off service that owns a LibraryHandOff for as long
    // as any copy of it lives (the copies end on the main thread).
    static std::function<void(const std::string&, const std::string&)> service(Factory factory);

private:
    struct Job {
        std::thread thread;
        bool finished = false;  // under mutex_
    };
    void run(const std::string& path, const std::string& playlist);
    // Joins the threads that have finished; caller holds the mutex.
    void reapFinished();

    Factory factory_;
    Done done_;
    std::mutex mutex_;
    std::condition_variable idle_;
    std::list<Job> jobs_;
    std::size_t running_ = 0;
};

}  // namespace quillon
