#include "engine/LibraryHandOff.h"

#include <system_error>

#include "platform/Log.h"

namespace quillon {

LibraryHandOff::LibraryHandOff(Factory factory, Done done)
    : factory_(std::move(factory)), done_(std::move(done)) {}

LibraryHandOff::~LibraryHandOff() {
    std::list<Job> jobs;
    {
        std::lock_guard lock(mutex_);
        jobs.swap(jobs_);
    }
    for (Job& job : jobs)
        if (job.thread.joinable()) job.thread.join();
}

void LibraryHandOff::reapFinished() {
    for (auto it = jobs_.begin(); it != jobs_.end();) {
        if (it->finished) {
            // Past its last use of the mutex: the join waits only for the thread's exit.
            it->thread.join();
            it = jobs_.erase(it);
        } else {
            ++it;
        }
    }
}

void LibraryHandOff::addTrack(const std::string& path, const std::string& playlist) {
    std::lock_guard lock(mutex_);
    reapFinished();
    if (running_ >= kMaxRunning) {
        Log::warn("Add to iTunes playlist error : {} hand-offs still running, {} not added to {}", running_,
                  path, playlist);
        return;
    }
    Job& job = jobs_.emplace_back();
    try {
        job.thread = std::thread([this, &job, path, playlist] {
            run(path, playlist);
            {
                std::lock_guard done(mutex_);
                job.finished = true;
                --running_;
            }
            idle_.notify_all();
        });
        ++running_;
    } catch (const std::system_error& e) {
        jobs_.pop_back();
        Log::warn("Add to iTunes playlist error : no thread for {} ({})", path, e.what());
    }
}

void LibraryHandOff::run(const std::string& path, const std::string& playlist) {
    std::string failure;
    std::unique_ptr<MusicLibrary> library = factory_ ? factory_(failure) : nullptr;
    MusicLibrary::Result result;
    if (!library) {
        result = MusicLibrary::Result::failed(failure.empty() ? "no music library" : failure);
    } else {
        result = library->addTrack(path, playlist);
        if (result.ok) Log::info("Added {} to the playlist {} ({})", path, playlist, library->description());
    }
    if (!result.ok) Log::warn("Add to iTunes playlist error : {}", result.failure);
    if (done_) done_(path, playlist, result);
}

void LibraryHandOff::waitUntilIdle() {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [this] { return running_ == 0; });
}

std::function<void(const std::string&, const std::string&)> LibraryHandOff::service(Factory factory) {
    auto owner = std::make_shared<LibraryHandOff>(std::move(factory));
    return [owner](const std::string& path, const std::string& playlist) { owner->addTrack(path, playlist); };
}

}  // namespace quillon
