#pragma once
// The application's settings: one shared resource saved as the XML property
// list home + "Library/Preferences/kv.vossen.qln.prf". Text settings are read
// with getParam (absent reads as ""), on/off settings with getState (only the
// string "YES" is on); numbers are kept as decimal text, "_genres" as an array
// of strings.
//
// Thread contract: the main thread writes (the settings editor, start-up, quit);
// recording threads read at the same time. Unlike other resources this matters
// here, so every single access goes through the resource's mutex (see
// AbstractResource). The shared instance is created, replaced (resetShared) and
// handed out under a mutex of its own; holders of the old instance keep it.
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/AbstractResource.h"

namespace quillon {

class Preferences : public AbstractResource {
public:
    static constexpr const char* kRelativePath = "Library/Preferences/kv.vossen.qln.prf";
    static constexpr const char* kOldRelativePath = "Library/Preferences/kv.config.qln";
    static constexpr const char* kVersion = "1.7.2";
    static constexpr const char* kGenresKey = "_genres";
    // The maker's web server (a host, optionally with ":port") that the version
    // check asks; empty: no check.
    static constexpr const char* kVersionHostKey = "versionHost";
    // The Live365 web host (a host, optionally with ":port") whose pages give
    // the titles of Live365 stations; empty: the service's own.
    static constexpr const char* kLive365HostKey = "live365Host";

    // The shared instance, loaded on first use (then the old settings file is
    // tried, then defaults). Nothing is saved by creating it; a settings file
    // that cannot be read is moved aside with a warning.
    static std::shared_ptr<Preferences> preferences();
    // Forgets the shared instance, so that the next preferences() reads the
    // settings of the current home folder afresh (tests).
    static void resetShared();

    Preferences() = default;

    // The stored value as text ("" when absent).
    std::string getParam(std::string_view key) const;
    // A missing value is ignored.
    void setParam(std::optional<std::string> value, std::string_view key);
    bool getState(std::string_view key) const;
    void setState(bool on, std::string_view key);

    // Merges settings of the older archived file when it can be read.
    void importOldPreferences();
    // Sets "_genres" to the default list, and the daemon's "webPort" ("8642"),
    // "webAllInterfaces" ("NO") and "versionHost" (""), each when absent.
    void defaultValues();
    static const std::vector<std::string>& defaultGenres();
    // The "_genres" strings (non-strings skipped).
    std::vector<std::string> genres() const;

    // The keys written at every start: the paths of the older files, the
    // version, and "relayPort" "9000" when its integer value is 0.
    void writeStartupKeys();

    // The folders of recent connections and of directory data, created with
    // their parents; nothing when they cannot be created.
    static std::optional<std::string> recentFolderPath();
    static std::optional<std::string> tunerFolderPath();

    // Creates the preferences folder before writing, which a fresh home lacks.
    bool saveToFile() override;
    using AbstractResource::saveToFile;

protected:
    std::shared_ptr<AbstractResource> newResource() const override { return std::make_shared<Preferences>(); }
};

}  // namespace quillon
