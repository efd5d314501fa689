#include "app/LocationProbe.h"

#include "app/LocationBookmark.h"
#include "platform/ByteBuffer.h"
#include "platform/Timing.h"
#include "store/Bookmark.h"

namespace quillon {

double LocationProbe::timeLimit() { return 2 * timing().redirectTimeout + 5; }

LocationProbe::LocationProbe(const std::string& location, std::string name, Done done)
    : location_(location), name_(std::move(name)), done_(std::move(done)) {
    if (auto playlist = checkLocation(location_)) {
        parse(std::string(asText(*playlist)));
        return;
    }
    BookmarkLocator::Callbacks callbacks;
    callbacks.openEditor = [this](std::shared_ptr<Bookmark> b) { found_.bookmark = std::move(b); };
    callbacks.alert = [this](const std::string&, const std::string& message) { alert_ = message; };
    callbacks.liveStream = [this](const std::string& header) { streamHeader_ = header; };
    callbacks.httpHeader = [this](const std::string& header) { httpHeader_ = header; };
    callbacks.searching = [this](bool on) {
        if (!on) finish();
    };
    locator_ = std::make_unique<BookmarkLocator>(std::move(callbacks));
    locator_->getUrl(location_, name_);
    if (!locator_->searching()) {
        finish();  // a page address needs no fetch
        return;
    }
    timeout_ = MainLoop::main().addTimer(timeLimit(), [this] {
        timeout_.reset();
        alert_ = "The request timed out.";
        locator_->cancel();  // ends the search: finish()
    });
}

LocationProbe::LocationProbe(PlaylistText playlist, std::string name, Done done)
    : location_("the playlist"), name_(std::move(name)), done_(std::move(done)) {
    parse(std::move(playlist.text));
}

void LocationProbe::parse(std::string text) {
    std::weak_ptr<bool> alive = alive_;
    parser_ = std::jthread([this, alive, text = std::move(text)] {
        auto bookmark = Bookmark::bookmark();
        if (!bookmark->getUrlFromData(std::string_view(text))) bookmark.reset();
        MainLoop::main().post([this, alive, bookmark] {
            if (alive.expired()) return;
            found_.bookmark = bookmark;
            finish();
        });
    });
}

LocationProbe::~LocationProbe() {
    if (timeout_) MainLoop::main().cancelTimer(*timeout_);
}

void LocationProbe::finish() {
    if (finished_) return;
    finished_ = true;
    if (timeout_) MainLoop::main().cancelTimer(*timeout_);
    timeout_.reset();

    Outcome outcome = std::move(found_);
    if (streamHeader_ && (!outcome.bookmark || !usableBookmark(*outcome.bookmark)))
        outcome.bookmark = bookmarkFromHeader(location_, *streamHeader_, true);
    if (!outcome.bookmark && httpHeader_)
        outcome.bookmark = bookmarkFromHeader(location_, *httpHeader_, false);
    if (outcome.bookmark) {
        if (!name_.empty()) outcome.bookmark->setName(name_);
        if (outcome.bookmark->name().value_or("").find_first_not_of(' ') == std::string::npos)
            outcome.bookmark->setName(std::string(Bookmark::kUntitledName));
    } else {
        outcome.failure = alert_.value_or("No stream location found in " + location_);
    }
    // Handed over from the main loop, never from inside the locator's callback
    // or the constructor, so that `done` may destroy this probe.
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().post([this, alive, outcome = std::move(outcome)]() mutable {
        if (alive.expired()) return;
        Done done = done_;  // `done` may destroy this probe
        done(std::move(outcome));
    });
}

}  // namespace quillon
