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
    FUZZ_CHECK(header.bitRate() <= 320);
    FUZZ_CHECK(header.hasMeta() == (header.metaInt() > 0));
    FUZZ_CHECK(isValidUtf8(header.name()) && isValidUtf8(header.genre()) && isValidUtf8(header.url()));
    FUZZ_CHECK(!header.errorType().empty() || !header.error());

    // The relay's header puts the status line first, so its listeners read the
    // same status the server sent.
    std::string rebuilt = header.header();
    FUZZ_CHECK(endsWith(rebuilt, "\r\n"));
    StreamHeader again;
    again.parseHeader(rebuilt);
    FUZZ_CHECK(again.error() == header.error() && again.errorType() == header.errorType());
    (void)header.description();
    return 0;
}
