#pragma once
// The settings of one test station: what it sends, how fast, and which faults it
// stages. A plain value; validate() checks it once, before the station starts.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon {

enum class StationRate { realtime, max };
// mp3 and aac switch tones at title changes; ogg repeats one tone.
enum class StationPayload { mp3, counter, aac, ogg };
enum class StationStatus { icy, http };
// How metadata blocks look when titles are withheld: none (titles are sent),
// zero-length blocks only, blocks that carry StreamTitle='', or blocks that
// carry a StreamUrl and no StreamTitle at all.
enum class EmptyTitles { none, zeroLength, blank, urlOnly };

struct StationOptions {
    std::uint16_t port = 0;             // 0: an ephemeral port, readable after start
    std::uint32_t metaint = 8192;       // audio bytes between metadata blocks; 0: no metadata
    std::uint32_t bitrate = 128;        // kbit/s, announced and used for pacing
    std::vector<std::string> titles;    // empty: generated "Artist N - Title N"
    std::uint64_t titleEvery = 262144;  // audio bytes between title changes; 0: one title only
    bool repeatTitle = false;           // repeat the current title in every metadata block
    // The encoding the titles (given in UTF-8) are sent in, by its iconv name
    // ("CP1251", "ISO-8859-1", ...); empty: UTF-8 as given.
    std::string titleEncoding;
    StationRate rate = StationRate::realtime;
    StationPayload payload = StationPayload::mp3;
    StationStatus status = StationStatus::icy;
    // The Server: line; unset means "Icecast 2.4.4" under an HTTP status line and
    // none under an ICY one; an empty text means no line at all.
    std::optional<std::string> server;
    std::string name = "Quillon Test Station";
    std::string genre = "Test";
    std::string url = "http://127.0.0.1/";
    // Answer "HTTP/1.1 200 OK" with the body in chunks (needs the http status).
    bool chunked = false;
    // Serve over TLS with this certificate chain and private key (PEM files);
    // both or neither.
    std::optional<std::string> tlsCertificate;
    std::optional<std::string> tlsKey;

    // Faults on demand.
    std::optional<std::uint64_t> closeAfter;  // hang up after this many audio bytes
    bool holdOpen = false;                    // at close-after, stop sending but stay connected
    std::optional<std::string> metaintText;   // the header's icy-metaint value, verbatim
    bool redirectToSelf = false;              // answer every request with a 302 to the station itself
    std::optional<std::uint32_t> badMetaAt;   // title index whose block gets a length byte >= 128
    std::optional<std::string> redirectTo;    // answer every request with a 302 to this URL
    std::optional<int> refuse;                // answer with this error status (400..599)
    bool silentAfterHeader = false;           // send the header, then nothing
    EmptyTitles emptyTitles = EmptyTitles::none;
    // With chunked answers: once this many audio bytes are sent, a size line
    // that is no hex number, then nothing more (the connection stays open).
    std::optional<std::uint64_t> badChunkAt;
};

// Throws std::invalid_argument with a one-line reason when the options cannot
// describe a working station.
void validate(const StationOptions& options);

// A title as the station sends it: in `encoding` (an iconv name; empty: UTF-8
// as given). Nothing when the encoding cannot hold it. Throws
// std::invalid_argument for an encoding iconv does not know.
std::optional<std::string> titleOnWire(const std::string& title, const std::string& encoding);

// "A - x,B - y" split at commas, blanks around each title trimmed, empty items
// dropped.
std::vector<std::string> parseTitleList(std::string_view text);

// The MPEG-1 Layer III bit rates (kbit/s) that an mp3 payload can use.
bool isMp3Bitrate(std::uint32_t kbps);

}  // namespace quillon
