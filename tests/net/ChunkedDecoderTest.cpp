// The chunked transfer decoder over byte tables: each case is fed whole, split
// in two at every offset and byte by byte, and must give the same payload, the
// same status and the same reason every time.
#include "net/ChunkedDecoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quillon {
namespace {

using Status = ChunkedDecoder::Status;

struct Outcome {
    std::string payload;
    Status status;
    std::string error;
    std::uint64_t ignored;
    bool operator==(const Outcome&) const = default;
    friend void PrintTo(const Outcome& o, std::ostream* os) {
        *os << "payload " << ::testing::PrintToString(o.payload) << ", status " << static_cast<int>(o.status)
            << ", error \"" << o.error << "\", ignored " << o.ignored;
    }
};

Outcome run(const std::vector<std::string_view>& pieces) {
    ChunkedDecoder decoder;
    Bytes out;
    for (std::string_view piece : pieces) decoder.decode(asBytes(piece), out);
    return {std::string(out.begin(), out.end()), decoder.status(), decoder.error(),
            decoder.ignoredAfterEnd()};
}

TEST(ChunkedDecoder, EveryCaseDecodesAlikeWhateverThePieces) {
    struct Case {
        const char* what;
        std::string wire;
        std::string payload;
        Status status;
        std::string error;  // the reason, after "Malformed chunked stream: "
        std::uint64_t ignored = 0;
    };
    const std::string prefix = "Malformed chunked stream: ";
    const std::vector<Case> cases = {
        {"two chunks and the end", "5\r\nhello\r\n7\r\n, world\r\n0\r\n\r\n", "hello, world", Status::Ended,
         ""},
        {"hex in both cases, leading zeros", "a\r\n0123456789\r\n00B\r\nabcdefghijk\r\n0\r\n\r\n",
         "0123456789abcdefghijk", Status::Ended, ""},
        {"extensions are skipped", "5;x=y\r\nhello\r\n3 ; name=\"v;w\"\r\nabc\r\n0;last\r\n\r\n", "helloabc",
         Status::Ended, ""},
        {"blanks after the size", "5 \t\r\nhello\r\n0\r\n\r\n", "hello", Status::Ended, ""},
        {"trailers end at the empty line", "5\r\nhello\r\n0\r\nX-Foo: bar\r\nY: z\r\n\r\n", "hello",
         Status::Ended, ""},
        {"still open inside a chunk", "5\r\nhello\r\n8\r\nabc", "helloabc", Status::Open, ""},
        {"still open inside a size line", "5\r\nhello\r\n1F", "hello", Status::Open, ""},
        {"bytes after the end are not payload", "2\r\nok\r\n0\r\n\r\nGARBAGE", "ok", Status::Ended, "", 7},
        {"metadata-like payload with CRLF inside", "6\r\n\x01\r\n\r\n\r\r\n0\r\n\r\n", "\x01\r\n\r\n\r",
         Status::Ended, ""},
        {"not hex", "5x\r\nhello\r\n", "", Status::Malformed, "chunk size followed by 'x'"},
        {"no digits", "\r\nhello\r\n", "", Status::Malformed, "chunk size expected, got 0x0D"},
        {"minus sign", "-5\r\nhello", "", Status::Malformed, "chunk size expected, got '-'"},
        {"0x prefix", "0x5\r\nhello", "", Status::Malformed, "chunk size followed by 'x'"},
        {"blank inside the number", "1 0\r\n", "", Status::Malformed, "chunk size followed by '0'"},
        {"bare line feed after the size", "5\nhello\r\n", "", Status::Malformed,
         "chunk size followed by 0x0A"},
        {"CR without LF", "5\r-hello", "", Status::Malformed, "chunk size line not ended by CRLF"},
        {"chunk longer than its size", "3\r\nhello\r\n", "hel", Status::Malformed,
         "chunk data not followed by CRLF, got 'l'"},
        {"chunk data with LF only", "2\r\nok\n0\r\n\r\n", "ok", Status::Malformed,
         "chunk data not followed by CRLF, got 0x0A"},
        {"one byte past the bound", "1000001\r\n", "", Status::Malformed, "chunk larger than 16777216 bytes"},
        {"the bound itself is fine", "1000000\r\nab", "ab", Status::Open, ""},
        {"a number that would overflow", "FFFFFFFFFFFFFFFFFFFFFFFF\r\n", "", Status::Malformed,
         "chunk larger than 16777216 bytes"},
        {"zeros without end", std::string(4097, '0'), "", Status::Malformed, "chunk size line too long"},
        {"endless extension", "5;" + std::string(5000, 'x'), "", Status::Malformed,
         "chunk size line too long"},
        {"endless trailers", "0\r\n" + std::string(16385, 'T'), "", Status::Malformed, "trailers too long"},
        {"trailer with a bare line feed", "0\r\nX: y\n\r\n", "", Status::Malformed,
         "bare line feed in the trailers"},
        {"nothing decodes after a failure", "2\r\nok\r\nZ\r\n5\r\nhello\r\n0\r\n\r\n", "ok",
         Status::Malformed, "chunk size expected, got 'Z'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Outcome want{c.payload, c.status, c.error.empty() ? "" : prefix + c.error, c.ignored};
        const std::string_view wire = c.wire;
        EXPECT_EQ(run({wire}), want);
        // Every offset of the short cases; the long ones in strides.
        const std::size_t stride = wire.size() > 256 ? 97 : 1;
        for (std::size_t cut = 1; cut < wire.size(); cut += stride) {
            ASSERT_EQ(run({wire.substr(0, cut), wire.substr(cut)}), want) << "split at " << cut;
        }
        std::vector<std::string_view> bytes;
        for (std::size_t i = 0; i < wire.size(); ++i) bytes.push_back(wire.substr(i, 1));
        EXPECT_EQ(run(bytes), want) << "byte by byte";
    }
}

}  // namespace
}  // namespace quillon
