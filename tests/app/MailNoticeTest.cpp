// The activity list's notices by mail, sent to aiosmtpd on loopback: which
// ends of a connection are told, and that nothing else is.
#include <gtest/gtest.h>

#include <mutex>
#include <set>

#include "app/AppTestSupport.h"
#include "engine/ConnectionTimer.h"
#include "notify/MailNotifier.h"
#include "notify/MailTestSupport.h"
#include "support/Loopback.h"

namespace quillon {
namespace {

using namespace quillon::test;

// Sees each connection's final telling: noticeEnd runs right after it.
struct EndWatchingInterface : FakeInterface {
    void connectionChanged(const Ripper& c) override {
        FakeInterface::connectionChanged(c);
        if (c.stoppedForGood() && c.endReason() != Ripper::EndReason::None) ended.insert(c.id());
    }
    std::set<std::uint64_t> ended;
};

struct Rule : ConnectionTimer {
    void connectionClosed(const Ripper&) override {}
    std::optional<Date> currentEndDate() const override { return std::nullopt; }
};

class MailNoticeTest : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        peer_ = std::make_unique<SmtpPeer>();
        prefs().setParam(peer_->server(), MailSettings::kServerKey);
        prefs().setParam("recorder@example.test", MailSettings::kFromKey);
        prefs().setParam("listener@example.test", MailSettings::kToKey);
        prefs().setState(false, "reconnect");
        for (const char* key :
             {MailSettings::kOnScheduleEndKey, MailSettings::kOnDiskFullKey, MailSettings::kOnGiveUpKey})
            prefs().setState(true, key);
        notifier_ =
            std::make_unique<MailNotifier>([this](const MailNotifier::Notice& n, const std::string& failure) {
                // Handed to the main loop, whose runUntil the test waits in.
                MainLoop::main().post(
                    [this, n, failure] { subjects_.push_back(failure.empty() ? n.subject : failure); });
            });
        controller_ = std::make_unique<ActivityController>(
            ui_, ConnectionServices{},
            [this](const std::string&) { return std::optional<std::uint64_t>(freeBytes_); });
        controller_->setMailNotifier(notifier_.get());
    }
    void TearDown() override {
        controller_.reset();
        notifier_.reset();
        if (station_) station_->stop();
        peer_.reset();
        AppFixture::TearDown();
    }

    // Waits for the next notice (its subject, or its failure).
    std::string nextNotice() {
        const std::size_t before = told_;
        if (!runUntil([&] { return subjects_.size() > before; })) return "(none)";
        return subjects_[told_++];
    }
    void waitForEnd(const Ripper* c) {
        ASSERT_TRUE(runUntil([&] { return ui_.ended.count(c->id()) > 0; }));
    }

    EndWatchingInterface ui_;
    std::uint64_t freeBytes_ = 10ull << 30;
    std::unique_ptr<SmtpPeer> peer_;
    std::unique_ptr<Station> station_;
    std::unique_ptr<MailNotifier> notifier_;
    std::unique_ptr<ActivityController> controller_;
    std::vector<std::string> subjects_;
    std::size_t told_ = 0;
};

TEST_F(MailNoticeTest, EachEndIsToldOnceAndOnlyWhenItMatters) {
    station_ = startStation();
    auto rule = std::make_shared<Rule>();
    Ripper* byHand = controller_->addRecord(*bookmarkFor(station_->port(), "By Hand"), nullptr, false, false);
    Ripper* scheduled = controller_->addRecord(*bookmarkFor(station_->port(), "Planned"), rule, false, false);
    Ripper* lost = controller_->addRecord(*bookmarkFor(unusedPort(), "Nowhere"), nullptr, false, false);
    ASSERT_TRUE(byHand && scheduled && lost);

    // A connection nobody can reach gives up (reconnecting is off).
    waitForEnd(lost);
    EXPECT_EQ(nextNotice(), "Connection gave up: Nowhere");

    ASSERT_TRUE(runUntil([&] { return byHand->isStreaming() && scheduled->isStreaming(); }));
    // Stopped by hand: not told. The notifier sends in order, so the next
    // notice would be this one if it had been.
    byHand->userClose();
    waitForEnd(byHand);
    scheduled->userClose();
    waitForEnd(scheduled);
    EXPECT_EQ(nextNotice(), "Recording finished: Planned");

    // Told once per run, however often the list redraws it.
    controller_->refreshDetails(*scheduled);
    freeBytes_ = 1000;
    controller_->selectConnection(byHand);
    controller_->stopButton();  // a running connection, so that the disk guard has something to stop
    ASSERT_TRUE(runUntil([&] { return byHand->isStreaming(); }));
    controller_->checkDiskSpace();
    EXPECT_EQ(nextNotice(), "Recording stopped: the disk is almost full");

    ASSERT_EQ(peer_->messageCount(), 3u);
    EXPECT_NE(peer_->message(2).find("Station: Planned\r\nEnded: stopped by the user\r\n"), std::string::npos)
        << peer_->message(2);
}

}  // namespace
}  // namespace quillon
