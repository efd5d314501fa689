#include <gtest/gtest.h>

#include <random>
#include <string>

#include "engine/StreamHeader.h"

using namespace quillon;

TEST(StreamHeaderParse, ServerTypesStatusAndValues) {
    struct Case {
        const char* label;
        std::string header;
        int serverType;
        bool error;
        std::string errorType, name, genre, url;
        int bitRate, metaInt;
    };
    const Case cases[] = {
        {"icy",
         "ICY 200 OK\r\nicy-name:Radio X\r\nicy-genre:Rock\r\nicy-url:http://x.example\r\nicy-br:128\r\n"
         "icy-metaint:8192\r\n\r\n",
         2, false, "OK", "Radio X", "Rock", "http://x.example", 128, 8192},
        {"bit rate above 320 reads as 128", "ICY 200 OK\r\nicy-br:999\r\n\r\n", 2, false, "OK", "", "", "",
         128, 0},
        {"icecast over http/1.0",
         "HTTP/1.0 200 OK\r\nServer: Icecast 2.4.4\r\nicy-name: Jazz FM\r\nicy-br: 64\r\n\r\n", 2, false,
         "OK", " Jazz FM", "", "", 64, 0},
        {"lower-case icecast", "HTTP/1.1 200 OK\r\nServer: icecast\r\nicy-name:A\r\n\r\n", 2, false, "OK",
         "A", "", "", 0, 0},
        {"audiocast",
         "HTTP/1.0 200 OK\r\nx-audiocast-name:Cast\r\nx-audiocast-genre:Pop\r\nx-audiocast-url:u\r\n"
         "x-audiocast-bitrate:96\r\nicy-name:ignored\r\nicy-metaint:16000\r\n\r\n",
         1, false, "OK", "Cast", "Pop", "u", 96, 16000},
        {"nano", "HTTP/1.0 200 OK\r\nServer: Nanocaster\r\nicy-name:N\r\nicy-br:128\r\n\r\n", 3, false, "OK",
         "N/A", "N/A", "N/A", 0, 0},
        {"other server", "HTTP/1.1 200 OK\r\nServer: Apache\r\nicy-name:Z\r\nicy-metaint:4096\r\n\r\n", 4,
         false, "OK", "N/A", "N/A", "N/A", 0, 4096},
        {"keys are matched without regard to case",
         "HTTP/1.1 200 OK\r\nserver: Icecast\r\nICY-NAME:A\r\nIcy-MetaInt: 4096\r\n\r\n", 2, false, "OK", "A",
         "", "", 0, 4096},
        {"a key inside a value is no key",
         "ICY 200 OK\r\nicy-name:Spicy 101\r\nicy-genre:x icy-br:64\r\n\r\n", 2, false, "OK", "Spicy 101",
         "x icy-br:64", "", 0, 0},
        {"icy 401", "ICY 401 Service Unavailable\r\n\r\n", 2, true, "Unavailable", "", "", "", 0, 0},
        {"http 403", "HTTP/1.1 403 Forbidden\r\n\r\n", 4, true, "Unknown error", "N/A", "N/A", "N/A", 0, 0},
        {"302", "HTTP/1.1 302 Found\r\n\r\n", 4, true, "Redirecting", "N/A", "N/A", "N/A", 0, 0},
        {"400", "ICY 400 Server Full\r\n\r\n", 2, true, "Server full", "", "", "", 0, 0},
        {"404", "HTTP/1.0 404 Not Found\r\n\r\n", 4, true, "Not found", "N/A", "N/A", "N/A", 0, 0},
        {"icy wins over http", "HTTP/1.1 404 x\r\nICY 200 OK\r\n\r\n", 2, false, "OK", "", "", "", 0, 0},
        {"first occurrence, value up to the line end",
         "ICY 200 OK\r\nicy-name:First\r\nicy-name:Second\r\nicy-br:12x\r\n\r\n", 2, false, "OK", "First", "",
         "", 12, 0},
        {"value without line end is absent", "ICY 200 OK\r\nicy-name:cut", 2, false, "OK", "", "", "", 0, 0},
        {"latin-1 name", "ICY 200 OK\r\nicy-name:Caf\xe9\r\n\r\n", 2, false, "OK", "Caf\xc3\xa9", "", "", 0,
         0},
        // Sizes the connection's buffers: out of bounds is an error, not an allocation.
        {"negative meta interval", "ICY 200 OK\r\nicy-metaint:-5\r\n\r\n", 2, true,
         "Invalid meta interval: -5", "", "", "", 0, 0},
        {"meta interval beyond the bound", "icy-metaint:2392997370\r\nai", 4, true,
         "Invalid meta interval: 2392997370", "N/A", "N/A", "N/A", 0, 0},
        {"meta interval at the bound", "ICY 200 OK\r\nicy-metaint:65536\r\n\r\n", 2, false, "OK", "", "", "",
         0, 65536},
        {"negative bit rate reads as 128", "ICY 200 OK\r\nicy-br:-1\r\n\r\n", 2, false, "OK", "", "", "", 128,
         0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        StreamHeader header;
        header.parseHeader(c.header);
        EXPECT_EQ(header.serverType(), c.serverType);
        EXPECT_EQ(header.error(), c.error);
        EXPECT_EQ(header.errorType(), c.errorType);
        EXPECT_EQ(header.name(), c.name);
        EXPECT_EQ(header.genre(), c.genre);
        EXPECT_EQ(header.url(), c.url);
        EXPECT_EQ(header.bitRate(), c.bitRate);
        EXPECT_EQ(header.metaInt(), c.metaInt);
        EXPECT_EQ(header.hasMeta(), c.metaInt > 0);
    }
}

TEST(StreamHeaderParse, ContentTypeAndTransferCodings) {
    struct Case {
        const char* what;
        std::string fields;
        std::string contentType;
        bool chunked;
        std::string errorType;  // "OK" unless the coding is refused
    };
    const Case cases[] = {
        {"plain mp3", "Content-Type: audio/mpeg\r\n", "audio/mpeg", false, "OK"},
        {"no content type", "icy-br:128\r\n", "", false, "OK"},
        {"lower case, no blank", "content-type:audio/aacp\r\n", "audio/aacp", false, "OK"},
        {"chunked", "Content-Type: application/ogg\r\nTransfer-Encoding: chunked\r\n", "application/ogg",
         true, "OK"},
        {"chunked in capitals with blanks", "TRANSFER-ENCODING:  Chunked \r\n", "", true, "OK"},
        {"identity is no coding", "Transfer-Encoding: identity\r\n", "", false, "OK"},
        {"compressed chunks cannot be recorded", "Transfer-Encoding: gzip, chunked\r\n", "", true,
         "Unsupported transfer encoding: gzip"},
        {"a coding name inside a value", "icy-description: Transfer-Encoding: chunked\r\n", "", false, "OK"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        StreamHeader header;
        header.parseHeader("HTTP/1.1 200 OK\r\n" + c.fields + "\r\n");
        EXPECT_EQ(header.contentType(), c.contentType);
        EXPECT_EQ(header.chunked(), c.chunked);
        EXPECT_EQ(header.errorType(), c.errorType);
        EXPECT_EQ(header.error(), c.errorType != "OK");
        // The relay's listeners get the stream unchunked: the coding is not repeated.
        EXPECT_EQ(header.header().find("ransfer"), std::string::npos);
    }
}

TEST(StreamHeaderParse, CountsEntriesAndKeepsEarlierErrorWithoutStatus) {
    StreamHeader header;
    EXPECT_EQ(header.parseHeader("ICY 404 Not Found\r\nicy-name:A\r\nicy-br:64\r\n\r\n"), 4);
    EXPECT_EQ(header.getValueForKey("N/A"), "N/A");
    EXPECT_EQ(header.getValueForKey("icy-br:"), "64");
    EXPECT_TRUE(header.error());

    // A header without any status line leaves the earlier verdict, but not the values.
    EXPECT_EQ(header.parseHeader("icy-genre:Jazz\r\n\r\n"), 2);
    EXPECT_TRUE(header.error());
    EXPECT_EQ(header.errorType(), "Not found");
    EXPECT_FALSE(header.getValueForKey("icy-name:").has_value());
    EXPECT_EQ(header.name(), "N/A");
    EXPECT_EQ(header.parseHeader(""), 1);
}

TEST(StreamHeaderParse, AccessorsAndDescription) {
    StreamHeader header;
    header.parseHeader(
        "ICY 200 OK\r\nicy-name:Radio X\r\nicy-genre:Rock\r\nicy-br:128\r\nicy-metaint:8192\r\n\r\n");
    header.setTitle("My bookmark");
    header.setStationURL("http://radio.example/");
    EXPECT_EQ(header.title(), "My bookmark");
    EXPECT_EQ(header.description(),
              "HEADER DESCRIPTION : \nName : Radio X\nGenre : Rock\nUrl: http://radio.example/\nBitrate : "
              "128\nMeta : "
              "8192");
    header.setBitRate(321);
    EXPECT_EQ(header.bitRate(), 128);
    header.setBitRate(320);
    EXPECT_EQ(header.bitRate(), 320);
}

TEST(StreamHeaderRebuild, KeyOrderRawValuesAndFinalBlankLine) {
    StreamHeader header;
    header.parseHeader(
        "icy-metaint:8192\r\nServer: Icecast\r\nicy-name:Caf\xe9\r\nX-Other: dropped\r\nContent-Type: "
        "audio/mpeg\r\nHTTP/1.0 200 OK\r\n\r\n");
    EXPECT_EQ(header.header(),
              "HTTP/1.0 200 OK\r\nServer: Icecast\r\nicy-name:Caf\xe9\r\nicy-metaint:8192\r\nContent-Type: "
              "audio/mpeg\r\n\r\n");
    StreamHeader empty;
    EXPECT_EQ(empty.header(), "\r\n");
}

TEST(StreamHeaderParse, ArbitraryBytesNeverBreakTheParser) {
    std::mt19937 random(12345);
    const std::string pieces[] = {"ICY ", "HTTP/1.1 ", "icy-metaint:",       "icy-br:",
                                  "\r\n", "Server: ",  "x-audiocast-name:",  "99999999999999",
                                  "-",    "\xff",      std::string(1, '\0'), "Nano",
                                  "200",  " "};
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        int parts = static_cast<int>(random() % 12);
        for (int i = 0; i < parts; ++i) text += pieces[random() % std::size(pieces)];
        StreamHeader header;
        int entries = header.parseHeader(text);
        ASSERT_GE(entries, 1) << text;
        ASSERT_GE(header.serverType(), 1);
        ASSERT_LE(header.serverType(), 4);
        ASSERT_LE(header.bitRate(), 320);
        ASSERT_GE(header.header().size(), 2u);
    }
}
