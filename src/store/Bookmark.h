#pragma once
// One saved radio stream: where to connect (host, port, path, user, password)
// and how to record it (name cleaning, splitting, artist folders, track numbers,
// the artist/title separator, the genre, a record offset). Stored as the file
// <bookmarks folder>/<name>.qlnbk, an XML property list of its dictionary.
//
// Thread contract: as AbstractResource. Built and changed on the main thread;
// a recording connection only reads its bookmark. getUrlFromData may block for
// up to twice timing().redirectTimeout on a redirect; call it off the main
// thread when the data may hold a query URL.
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "store/AbstractResource.h"

namespace quillon {

class Bookmark : public AbstractResource {
public:
    static constexpr const char* kFileExtension = "qlnbk";
    static constexpr const char* kUntitledName = "Untitled Stream";

    // A new bookmark: only "separator" (" - ") is set.
    Bookmark();
    static std::shared_ptr<Bookmark> bookmark() { return resource<Bookmark>(); }

    // The sanitised form of a proposed name, of the same length (in UTF-16
    // units): each character that is not a letter, mark or digit of Latin-1
    // (the 8-bit encoding of names) turns into a space, and so does every
    // character beyond Latin-1. For ASCII this keeps letters and digits only.
    static std::string checkName(std::optional<std::string_view> name);
    // Whether every character of the UTF-8 text lies within Latin-1
    // (U+0000-U+00FF), so that checkName can keep it.
    static bool isLatin1(std::string_view text);

    std::optional<std::string> name() const override;
    // Stores checkName(name); a missing name stores the empty string.
    void setName(std::optional<std::string> name) override;
    std::optional<std::string> connName() const { return name(); }

    std::optional<std::string> host() const { return stringForKey("host"); }
    void setHost(std::optional<std::string> host) { setString(std::move(host), "host"); }
    std::optional<std::string> port() const { return stringForKey("port"); }
    void setPort(std::optional<std::string> port) { setString(std::move(port), "port"); }
    // "/" when absent or empty.
    std::string path() const;
    // Drops one trailing carriage return.
    void setPath(std::optional<std::string> path);
    std::optional<std::string> user() const { return stringForKey("user"); }
    void setUser(std::optional<std::string> user) { setString(std::move(user), "user"); }
    std::optional<std::string> pass() const { return stringForKey("pass"); }
    void setPass(std::optional<std::string> pass) { setString(std::move(pass), "pass"); }
    // "-" when absent.
    std::string genre() const;
    void setGenre(std::optional<std::string> genre) { setString(std::move(genre), "genre"); }
    std::optional<std::string> separator() const { return stringForKey("separator"); }
    void setSeparator(std::optional<std::string> separator) { setString(std::move(separator), "separator"); }

    bool clean() const { return boolForKey("clean"); }
    void setClean(bool on) { setBool(on, "clean"); }
    // Key "nosplit" (all lower case).
    bool noSplit() const { return boolForKey("nosplit"); }
    void setNoSplit(bool on) { setBool(on, "nosplit"); }
    bool sortArtists() const { return boolForKey("sortArtists"); }
    void setSortArtists(bool on) { setBool(on, "sortArtists"); }
    bool trackNum() const { return boolForKey("trackNum"); }
    void setTrackNum(bool on) { setBool(on, "trackNum"); }
    // The record offsets the track writer can honour, in seconds: its delay
    // line holds 30 s, so a cut cannot move further back, and a cut further
    // ahead would keep more than its 60 s capacity in memory at every title.
    // The setter stores any value; editors offer this range.
    static constexpr int kMinRecOffset = -30;
    static constexpr int kMaxRecOffset = 30;
    // Stored as decimal text; read back as the integer value of what is stored.
    int recOffset() const { return intForKey("recOffset"); }
    void setRecOffset(int offset) { setString(std::to_string(offset), "recOffset"); }

    // The encoding of the stream's titles (key "titleEncoding"): "auto" (the
    // default: detected per title) or an encoding name the engine knows
    // ("UTF-8", "ISO-8859-1", "CP1251", "CP1252"). "auto" and the empty text
    // remove the key, so that a bookmark that never chose one is stored as
    // it always was.
    std::string titleEncoding() const;
    void setTitleEncoding(const std::string& encoding);

    // The stream's scheme, "http" or "https" (key "scheme", stored only for
    // "https", so that a plain bookmark is stored as it always was). Any
    // scheme other than https (in any case) stores plain http.
    std::string scheme() const;
    void setScheme(const std::string& scheme);
    bool secure() const { return scheme() == "https"; }
    // The port a scheme's address has when it names none.
    static int defaultPort(const std::string& scheme);

    // Takes an https server's certificate even when it cannot be verified
    // (key "allowUntrustedCertificate", stored only when on). Off by default:
    // the connection then says that it records from an untrusted server.
    bool allowUntrustedCertificate() const { return boolForKey("allowUntrustedCertificate"); }
    void setAllowUntrustedCertificate(bool on);

    // "user:pass" when both are non-empty, else nothing.
    std::optional<std::string> authentication() const;

    // "Bookmark <name> Host <host> Port <port> Path <path>"; absent values
    // read "(null)".
    std::string description() const override;

    using AbstractResource::loadFromFile;
    using AbstractResource::saveToFile;
    // Writes folder/<name>.qlnbk atomically; the resource's file path is not
    // changed.
    bool saveToFile(const std::string& folder) override;
    // Records the path (and its extension as the file type), then loads.
    bool loadFromFile(const std::string& path);
    // Rewrites a bookmark read from an older form as a .qlnbk file in folder.
    bool convertOldBookmarkToPath(const std::string& folder) { return saveToFile(folder); }
    // The file the bookmark is saved to in `folder`.
    std::string pathInFolder(const std::string& folder) const;

    // Fills the bookmark from playlist or URL text ("Title1=", "File1=" or a
    // bare "http://" or "https://" line; the scheme is kept), resolving one redirect when the URL has a
    // query. True when the bookmark is usable.
    bool getUrlFromData(std::span<const std::uint8_t> data);
    bool getUrlFromData(std::string_view text);

    // The text after the first `start` and before the next `end`; empty when
    // either is missing.
    static std::string parseData(std::span<const std::uint8_t> data, std::string_view start,
                                 std::string_view end);

protected:
    std::shared_ptr<AbstractResource> newResource() const override { return std::make_shared<Bookmark>(); }
};

}  // namespace quillon
