#pragma once
// The parsed response header of a stream server: status, server type, station
// name, genre, URL, bit rate and meta interval, plus the header rebuilt for the
// relay's listeners. A pure parser over the header bytes.
//
// Thread contract: one thread at a time (the connection's); the connection
// hands the finished object to readers only after parsing.
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/VoObject.h"

namespace quillon {

class StreamHeader : public VoObject {
public:
    // The longest meta interval accepted, in bytes (servers send 8192 to 65536).
    static constexpr int kMaxMetaInt = 65536;

    // A meta interval text as a whole number within 0..kMaxMetaInt (blanks
    // around it allowed; none at all is 0); nothing for anything else. Pure.
    static std::optional<int> checkedMetaInt(std::string_view value);

    StreamHeader();

    // The value of the first line of `header` that begins with `key`, compared
    // without regard to case, up to that line's "\r\n"; nothing when no line
    // does. Pure.
    static std::optional<std::string> lineValue(std::span<const std::uint8_t> header, std::string_view key);

    // Parses the header bytes (up to and including the blank line) and returns
    // the number of entries found, the "N/A" entry included. Values are kept as
    // the server sent them: the text behind the key up to the next "\r\n".
    // Keys are found at the start of a line, without regard to case.
    int parseHeader(std::span<const std::uint8_t> header);
    int parseHeader(std::string_view header);

    // The raw value stored under a key ("icy-name:", "N/A", ...), or none.
    std::optional<std::string> getValueForKey(std::string_view key) const;
    // The header for the relay's listeners: every key found, in key-list order,
    // with its value and "\r\n", then a final "\r\n".
    std::string header() const;
    std::string description() const;

    // The keys searched for, in order.
    const std::vector<std::string>& infoTypes() const { return infoTypes_; }

    // 1 audiocast-style server, 2 ICY, 3 "Nano", 4 other (0 before any parse).
    int serverType() const { return serverType_; }
    bool error() const { return error_; }
    const std::string& errorType() const { return errorType_; }
    // Name, genre and URL as UTF-8 (a value that is not valid UTF-8 is read as
    // Latin-1); a blank that followed the key's colon is kept.
    const std::string& name() const { return name_; }
    const std::string& title() const { return title_; }
    void setTitle(std::string title) { title_ = std::move(title); }
    const std::string& genre() const { return genre_; }
    const std::string& url() const { return url_; }
    void setStationURL(std::string url) { url_ = std::move(url); }
    // kbit/s; a stored value above 320 reads as 128. Deliberate: so does a
    // negative one, because the delay line is sized by the bit rate.
    int bitRate() const { return bitRate_ > 320 || bitRate_ < 0 ? 128 : bitRate_; }
    void setBitRate(int bitRate) { bitRate_ = bitRate; }
    // 0 without metadata; a value that is not a whole number within
    // 0..kMaxMetaInt makes the header an error ("Invalid meta interval: ...")
    // and reads as 0.
    int metaInt() const { return metaInt_; }
    bool hasMeta() const { return hasMeta_; }
    // The "Content-Type:" value, blanks trimmed (empty when absent); the
    // rebuilt header ends with it.
    const std::string& contentType() const { return contentType_; }
    // The body arrives in chunks ("Transfer-Encoding: chunked"); the relay and
    // the files get it unchunked. Any other transfer coding makes the header
    // an error ("Unsupported transfer encoding: ..."): the audio could not be
    // told from its coding.
    bool chunked() const { return chunked_; }

private:
    std::string valueOr(std::string_view key) const;
    void updateError();
    void updateServerType();
    void updateTransferCoding(const std::string& value);

    std::map<std::string, std::string, std::less<>> streamInfos_;
    std::vector<std::string> infoTypes_;
    int serverType_ = 0;
    bool error_ = false;
    std::string errorType_;
    std::string name_;
    std::string title_;
    std::string genre_;
    std::string url_;
    int bitRate_ = 0;
    int metaInt_ = 0;
    bool hasMeta_ = false;
    std::string contentType_;
    bool chunked_ = false;
};

}  // namespace quillon
