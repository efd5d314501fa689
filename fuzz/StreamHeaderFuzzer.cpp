// The stream server's response header, as the connection reads it up to the
// blank line: parsing, the accessors and the header rebuilt for the relay.
#include <cstddef>
#include <cstdint>
#include <span>

#include "FuzzCheck.h"
#include "engine/StreamHeader.h"
#include "platform/TextUtil.h"

using namespace quillon;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    StreamHeader header;
    int entries = header.parseHeader(std::span<const std::uint8_t>(data, size));
    // "N/A" plus at most one entry per key searched for.
    FUZZ_CHECK(entries >= 1 && entries <= static_cast<int>(header.infoTypes().size()) + 1);
    FUZZ_CHECK(header.serverType() >= 1 && header.serverType() <= 4);
    // The connection sizes its delay line by the bit rate and its read buffer by
    // the meta interval: both must stay within bounds whatever the server says.
    FUZZ_CHECK(header.bitRate() >= 0 && header.bitRate() <= 320);
    FUZZ_CHECK(header.metaInt() >= 0 && header.metaInt() <= StreamHeader::kMaxMetaInt);
    FUZZ_CHECK(header.hasMeta() == (header.metaInt() > 0));
    FUZZ_CHECK(isValidUtf8(header.name()) && isValidUtf8(header.genre()) && isValidUtf8(header.url()));
    FUZZ_CHECK(!header.errorType().empty() || !header.error());

    // The relay's header puts the status lines first, so its listeners read the
    // status the server sent.
    std::string rebuilt = header.header();
    FUZZ_CHECK(endsWith(rebuilt, "\r\n"));
    StreamHeader again;
    again.parseHeader(rebuilt);
    for (const char* status : {"ICY ", "HTTP/1.1 ", "HTTP/1.0 "}) {
        // The first status line present is the one that decides.
        if (!header.getValueForKey(status)) continue;
        FUZZ_CHECK(again.getValueForKey(status) == header.getValueForKey(status));
        break;
    }
    (void)header.description();
    return 0;
}
