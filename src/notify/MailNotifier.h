#pragma once
// Sends notices by mail on a thread of its own, so that no recording, timer
// or request ever waits for a mail server. Notices are queued (at most
// kMaxQueued; more are dropped with a log line) and sent one after another,
// each as one SMTP dialogue with the settings it was posted with. A notice
// that cannot be sent is logged with the reason; nothing is retried.
//
// The events that may send a notice are each switched on by a preference,
// off by default (see MailSettings); notice() checks the switch and the
// settings when it is called.
//
// Thread contract: post() and notice() may be called from any thread (the
// application calls them on the main thread); they only queue under
// `mutex_`. The sender thread is owned: destruction drops what waits,
// interrupts the dialogue in flight and joins the thread. The `sent`
// callback runs on the sender thread.
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "notify/MailSettings.h"

namespace quillon {

class SMTP;

class MailNotifier {
public:
    struct Notice {
        std::string subject;
        std::string body;
    };
    enum class Event { scheduleFinished, diskAlmostFull, gaveUp };

    // Told of every notice after its dialogue: the failure text, or "" when sent.
    using Sent = std::function<void(const Notice& notice, const std::string& failure)>;

    static constexpr std::size_t kMaxQueued = 16;

    explicit MailNotifier(Sent sent = {});
    ~MailNotifier();
    MailNotifier(const MailNotifier&) = delete;
    MailNotifier& operator=(const MailNotifier&) = delete;

    // Queues the notice when the event's switch is on and the mail settings
    // of the preferences are complete; returns whether it was queued.
    bool notice(Event event, const std::string& subject, const std::string& body);
    // Queues the notice for these settings; false when the queue is full.
    bool post(MailSettings settings, Notice notice);

    // One notice sent on the calling thread: "" when the server took it, else
    // why not (the settings' problem, the password file, the dialogue's
    // failure).
    static std::string send(MailSettings settings, const Notice& notice);
    // The body's lines, each "label: value", with line breaks and other
    // controls in the values made blanks: no line of it can end the message.
    static std::string bodyLines(std::initializer_list<std::pair<std::string, std::string>> fields);

private:
    struct Job {
        MailSettings settings;
        Notice notice;
    };
    void run();

    Sent sent_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Job> queue_;           // guarded by mutex_
    bool stopping_ = false;           // guarded by mutex_
    std::shared_ptr<SMTP> inFlight_;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace quillon
