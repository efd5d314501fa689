#pragma once
// The engine's title source for Live365 stations: a Live365Parser that reads
// the station's playlist page and hands its titles to the connection, which
// starts the tracks on its own thread (Ripper::setFileNameFromPage).
//
// Thread contract: made and destroyed by the connection (its thread, or the
// main thread while that thread does not run); the parser's polling thread
// calls the connection's page-title operations, which lock for themselves.
// Destruction joins the polling thread.
#include <functional>
#include <memory>
#include <string>

#include "engine/ConnectionServices.h"
#include "net/Live365Parser.h"

namespace quillon {

class Live365TitleSource : public TitleSource, private Live365Parser::Connection {
public:
    // `webHost`: the service's web host ("" for the built-in one).
    Live365TitleSource(Ripper& ripper, const std::string& requestText, const std::string& webHost);
    ~Live365TitleSource() override;

    bool enabled() const override { return parser_ && parser_->enabled(); }

    // What ConnectionServices::makeTitleSource is set to: each source takes
    // the web host from the preference "live365Host" when it is made.
    static std::function<std::unique_ptr<TitleSource>(Ripper&, const std::string&)> factory();

private:
    bool live() const override;
    void setFileName(const std::string& name) override;
    void setNoNameFile() override;
    void setStationURL(const std::string& url) override;

    Ripper& ripper_;
    std::unique_ptr<Live365Parser> parser_;
};

}  // namespace quillon
