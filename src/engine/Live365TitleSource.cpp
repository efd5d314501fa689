#include "engine/Live365TitleSource.h"

#include "engine/Ripper.h"
#include "store/Preferences.h"

namespace quillon {

Live365TitleSource::Live365TitleSource(Ripper& ripper, const std::string& requestText,
                                       const std::string& webHost)
    : ripper_(ripper) {
    // The parser calls back from its constructor and its thread: it is made
    // once the rest of this object is.
    Live365Parser::Connection& connection = *this;
    parser_ = std::make_unique<Live365Parser>(connection, requestText, webHost);
}

Live365TitleSource::~Live365TitleSource() { parser_.reset(); }

std::function<std::unique_ptr<TitleSource>(Ripper&, const std::string&)> Live365TitleSource::factory() {
    return [](Ripper& ripper, const std::string& requestText) -> std::unique_ptr<TitleSource> {
        const std::string host = Preferences::preferences()->getParam(Preferences::kLive365HostKey);
        return std::make_unique<Live365TitleSource>(ripper, requestText, host);
    };
}

bool Live365TitleSource::live() const { return ripper_.isStreaming(); }

void Live365TitleSource::setFileName(const std::string& name) { ripper_.setFileNameFromPage(name); }

void Live365TitleSource::setNoNameFile() { ripper_.setNoNameFileFromPage(); }

void Live365TitleSource::setStationURL(const std::string& url) { ripper_.setStationURL(url); }

}  // namespace quillon
