#include "notify/MailNotifier.h"

#include "notify/SMTP.h"
#include "platform/Log.h"
#include "platform/NamedException.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

const char* switchFor(MailNotifier::Event event) {
    switch (event) {
        case MailNotifier::Event::scheduleFinished:
            return MailSettings::kOnScheduleEndKey;
        case MailNotifier::Event::diskAlmostFull:
            return MailSettings::kOnDiskFullKey;
        case MailNotifier::Event::gaveUp:
            return MailSettings::kOnGiveUpKey;
    }
    return MailSettings::kOnGiveUpKey;
}

// The request for one notice, ready to connect.
std::shared_ptr<SMTP> requestFor(MailSettings& settings, const MailNotifier::Notice& notice) {
    auto request = std::make_shared<SMTP>(&settings);
    request->setSenderMail(settings.from);
    request->setSenderName("Quillon");
    request->setDestMail(settings.to);
    request->setSubject(notice.subject);
    request->setMailData(notice.body);
    return request;
}

}  // namespace

MailNotifier::MailNotifier(Sent sent) : sent_(std::move(sent)) {
    thread_ = std::thread([this] { run(); });
}

MailNotifier::~MailNotifier() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        queue_.clear();
        if (inFlight_) inFlight_->interrupt();
    }
    wake_.notify_all();
    thread_.join();
}

bool MailNotifier::notice(Event event, const std::string& subject, const std::string& body) {
    auto prefs = Preferences::preferences();
    if (!prefs->getState(switchFor(event))) return false;
    MailSettings settings = MailSettings::fromPreferences(*prefs);
    if (std::string problem = settings.problem(); !problem.empty()) {
        Log::warn("Mail notice \"{}\" not sent: {}", subject, problem);
        return false;
    }
    return post(std::move(settings), Notice{subject, body});
}

bool MailNotifier::post(MailSettings settings, Notice notice) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_) return false;
        if (queue_.size() >= kMaxQueued) {
            Log::warn("Mail notice \"{}\" dropped: {} notices wait already", notice.subject, kMaxQueued);
            return false;
        }
        queue_.push_back(Job{std::move(settings), std::move(notice)});
    }
    wake_.notify_one();
    return true;
}

void MailNotifier::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (stopping_) return;
        Job job = std::move(queue_.front());
        queue_.pop_front();
        std::string failure;
        std::string why;
        if (std::string problem = job.settings.problem(); !problem.empty()) {
            failure = problem;
        } else if (!job.settings.loadPassword(why)) {
            failure = why;
        } else {
            std::shared_ptr<SMTP> request;
            try {
                request = requestFor(job.settings, job.notice);
            } catch (const NamedException& e) {
                failure = e.reason();
            }
            if (request) {
                inFlight_ = request;
                lock.unlock();
                try {
                    request->connect();
                } catch (const NamedException& e) {
                    failure = e.reason();
                }
                lock.lock();
                inFlight_.reset();
            }
        }
        if (failure.empty())
            Log::info("Mail notice \"{}\" sent to {}", job.notice.subject, job.settings.to);
        else
            Log::warn("Mail notice \"{}\" not sent: {}", job.notice.subject, failure);
        if (sent_) {
            lock.unlock();
            sent_(job.notice, failure);
            lock.lock();
        }
    }
}

std::string MailNotifier::send(MailSettings settings, const Notice& notice) {
    if (std::string problem = settings.problem(); !problem.empty()) return problem;
    std::string why;
    if (!settings.loadPassword(why)) return why;
    try {
        requestFor(settings, notice)->connect();
    } catch (const NamedException& e) {
        return e.reason();
    }
    return {};
}

std::string MailNotifier::bodyLines(std::initializer_list<std::pair<std::string, std::string>> fields) {
    std::string body;
    for (const auto& [label, value] : fields) {
        std::string clean = value;
        for (char& c : clean)
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
        body += label + ": " + clean + "\r\n";
    }
    return body;
}

}  // namespace quillon
