#include "history/HistoryWriter.h"

#include <filesystem>
#include <limits>
#include <system_error>

#include "history/HistoryDatabase.h"
#include "platform/Home.h"
#include "platform/Log.h"

namespace quillon {

HistoryWriter::HistoryWriter(std::string folder, SaveFunction save)
    : folder_(std::move(folder)),
      save_(save ? std::move(save) : [folder = folder_](const std::string& key, const HistoryDatabase& day) {
          return day.saveAtPath(folder, key);
      }) {}

HistoryWriter::~HistoryWriter() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void HistoryWriter::save(const std::string& key, DatabasePtr day) {
    {
        std::lock_guard lock(mutex_);
        latest_[key] = day;
        enqueue(key, std::move(day));
    }
    changed_.notify_all();
}

void HistoryWriter::remove(const std::string& key, const DatabasePtr& day) {
    {
        std::lock_guard lock(mutex_);
        if (auto found = latest_.find(key); found != latest_.end()) {
            DatabasePtr latest = found->second.lock();
            if (latest && latest != day) return;
        }
        enqueue(key, nullptr);
    }
    changed_.notify_all();
}

void HistoryWriter::enqueue(const std::string& key, DatabasePtr day) {
    ++requests_;
    auto [entry, added] = pending_.try_emplace(key, Pending{day, requests_});
    if (!added) entry->second.day = std::move(day);  // the newest wish for the key wins
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
}

bool HistoryWriter::flush() {
    std::unique_lock lock(mutex_);
    const std::uint64_t asked = requests_;
    changed_.wait(lock, [&] { return oldestOutstanding() > asked; });
    bool ok = failures_ == failuresReported_;
    failuresReported_ = failures_;
    return ok;
}

std::uint64_t HistoryWriter::oldestOutstanding() const {
    std::uint64_t oldest = std::numeric_limits<std::uint64_t>::max();
    if (current_) oldest = current_->firstRequest;
    for (const auto& [key, entry] : pending_) oldest = std::min(oldest, entry.firstRequest);
    return oldest;
}

void HistoryWriter::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [&] { return stopping_ || !pending_.empty(); });
        if (pending_.empty()) return;  // stopping, and everything is written
        // The day waiting longest goes first.
        auto next = pending_.begin();
        for (auto it = pending_.begin(); it != pending_.end(); ++it) {
            if (it->second.firstRequest < next->second.firstRequest) next = it;
        }
        const std::string key = next->first;
        current_ = std::move(next->second);
        pending_.erase(next);
        DatabasePtr day = current_->day;

        lock.unlock();
        bool ok = write(key, day);
        lock.lock();

        if (!ok) ++failures_;
        current_.reset();
        changed_.notify_all();
    }
}

bool HistoryWriter::write(const std::string& key, const DatabasePtr& day) {
    std::string path = joinPath(folder_, key + "." + HistoryDatabase::kExtension);
    // Deliberate: failures are loud (a warning, also on stderr), not silent,
    // since a day that is not on disk is a day the user will not find again.
    if (day) {
        if (save_(key, *day)) return true;
        Log::warn("Unable to save the history day {}", path);
        return false;
    }
    std::error_code ec;
    std::filesystem::remove(path, ec);
    if (!ec) return true;
    Log::warn("Unable to delete the history day {}: {}", path, ec.message());
    return false;
}

}  // namespace quillon
