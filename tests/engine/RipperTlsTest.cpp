// https streams: the built-in station serves TLS with certificates of a
// throw-away CA that SSL_CERT_FILE makes the only one trusted. A trusted
// server records exactly what plain HTTP records; every certificate that does
// not verify ends the connection with the reason and records nothing, unless
// the bookmark allows untrusted certificates, when the status says so.
#include <openssl/x509_vfy.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>

#include "RipperTestSupport.h"
#include "platform/AtomicFile.h"
#include "platform/Log.h"
#include "support/TestCertificates.h"

namespace quillon::test {
namespace {

class RipperTlsTest : public RipperFixture {
protected:
    static void SetUpTestSuite() {
        const std::string folder = homePath("tls-certificates");
        std::filesystem::remove_all(folder);
        makeFolders(folder + "/no-ca-dir");
        certificates_ = new TestCertificates(folder);
        trusted_ = certificates_->signedServer("trusted", "IP:127.0.0.1,DNS:localhost");
        wrongHost_ = certificates_->signedServer("wrong-host", "DNS:wrong.example");
        expired_ = certificates_->signedServer("expired", "IP:127.0.0.1", "200101000000Z", "200102000000Z");
        selfSigned_ = certificates_->selfSignedServer("self-signed");
        // Only the test's CA: the machine's own store plays no part.
        ::setenv("SSL_CERT_FILE", certificates_->caFile().c_str(), 1);
        ::setenv("SSL_CERT_DIR", (folder + "/no-ca-dir").c_str(), 1);
    }
    static void TearDownTestSuite() {
        ::unsetenv("SSL_CERT_FILE");
        ::unsetenv("SSL_CERT_DIR");
        delete certificates_;
        certificates_ = nullptr;
    }

    static StationOptions tlsStation(const TestCertificates::Server& server) {
        StationOptions options = counterStation();
        options.tlsCertificate = server.certificate;
        options.tlsKey = server.key;
        return options;
    }

    static std::shared_ptr<Bookmark> httpsBookmark(std::uint16_t port,
                                                   const std::string& host = "127.0.0.1") {
        auto bookmark = bookmarkFor(port);
        bookmark->setScheme("https");
        bookmark->setHost(host);
        return bookmark;
    }

    struct Outcome {
        Ripper::EndReason reason = Ripper::EndReason::None;
        std::string status;
        bool untrusted = false;
        std::vector<Ripper::State> states;
    };

    // Records from `bookmark` into `folder` until the connection stops for good.
    Outcome recordToEnd(const Bookmark& bookmark, const std::string& folder) {
        RecordingOwner owner(folder);
        Outcome outcome;
        {
            Ripper ripper(owner, bookmark, false, false);
            EXPECT_TRUE(runUntil([&] { return ripper.stoppedForGood(); }));
            outcome.reason = ripper.endReason();
            outcome.status = ripper.status();
            outcome.untrusted = ripper.untrustedCertificate();
        }
        outcome.states = owner.states();
        return outcome;
    }

    static TestCertificates* certificates_;
    static TestCertificates::Server trusted_, wrongHost_, expired_, selfSigned_;
};

TestCertificates* RipperTlsTest::certificates_ = nullptr;
TestCertificates::Server RipperTlsTest::trusted_, RipperTlsTest::wrongHost_, RipperTlsTest::expired_,
    RipperTlsTest::selfSigned_;

// The same stream, once over HTTP and once over TLS (by address and by name):
// the same files with the same bytes. The allow switch changes nothing for a
// certificate that verifies.
TEST_F(RipperTlsTest, ATrustedServerRecordsExactlyWhatPlainHttpRecords) {
    StationOptions options = counterStation();
    options.titles = {"Alpha - One", "Beta - Two", "Gamma - Three"};
    options.titleEvery = 150000;
    options.closeAfter = 420000;
    Station plain(options);
    plain.start();
    const Outcome plainRun = recordToEnd(*bookmarkFor(plain.port()), folder_ + "/plain");
    ASSERT_EQ(plainRun.reason, Ripper::EndReason::ServerEnded);
    const std::vector<std::string> files = filesUnder(folder_ + "/plain");
    ASSERT_GE(files.size(), 3u);

    StationOptions secureOptions = tlsStation(trusted_);
    secureOptions.titles = options.titles;
    secureOptions.titleEvery = options.titleEvery;
    secureOptions.closeAfter = options.closeAfter;
    Station secure(secureOptions);
    secure.start();
    for (const char* host : {"127.0.0.1", "localhost"}) {
        SCOPED_TRACE(host);
        auto bookmark = httpsBookmark(secure.port(), host);
        bookmark->setAllowUntrustedCertificate(true);
        const std::string folder = folder_ + "/tls-" + host;
        const Outcome run = recordToEnd(*bookmark, folder);
        EXPECT_EQ(run.reason, Ripper::EndReason::ServerEnded);
        EXPECT_FALSE(run.untrusted);
        ASSERT_EQ(filesUnder(folder), files);
        for (const std::string& file : files) {
            auto expected = readWholeFile(joinPath(folder_ + "/plain", file));
            auto got = readWholeFile(joinPath(folder, file));
            ASSERT_TRUE(expected && got) << file;
            EXPECT_TRUE(*expected == *got) << file << " differs";
        }
    }
}

// Each certificate that does not verify: the connection ends at once (no
// reconnect, though reconnecting is on) with the reason as its status and
// log line, never shows itself recording and leaves no file.
TEST_F(RipperTlsTest, AnUntrustedCertificateEndsTheConnectionWithItsReason) {
    prefs().setState(true, "reconnect");
    struct Case {
        const char* what;
        const TestCertificates::Server* server;
        const char* host;
        long error;
    };
    const Case cases[] = {
        {"signed by no trusted CA", &selfSigned_, "127.0.0.1", X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT},
        {"made for another host name", &wrongHost_, "localhost", X509_V_ERR_HOSTNAME_MISMATCH},
        {"made for another address", &wrongHost_, "127.0.0.1", X509_V_ERR_IP_ADDRESS_MISMATCH},
        {"expired", &expired_, "127.0.0.1", X509_V_ERR_CERT_HAS_EXPIRED},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Station station(tlsStation(*c.server));
        station.start();
        const std::string expected =
            std::string("certificate not trusted: ") + X509_verify_cert_error_string(c.error);
        const std::string folder = folder_ + "/" + c.what;
        Log::Capture log;
        const Outcome run = recordToEnd(*httpsBookmark(station.port(), c.host), folder);
        EXPECT_EQ(run.reason, Ripper::EndReason::Untrusted);
        EXPECT_EQ(run.status, expected);
        const auto lines = log.lines();
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(),
                                [&](const std::string& line) { return line.rfind(expected, 0) == 0; }))
            << "no log line begins with: " << expected;
        EXPECT_EQ(std::count(run.states.begin(), run.states.end(), Ripper::State::Recording), 0);
        EXPECT_EQ(std::count(run.states.begin(), run.states.end(), Ripper::State::WaitingToReconnect), 0);
        EXPECT_EQ(station.clients().size(), 1u);
        EXPECT_TRUE(filesUnder(folder).empty());
    }
}

TEST_F(RipperTlsTest, TheBookmarksSwitchRecordsFromAnUntrustedServerAndSaysSo) {
    Station station(tlsStation(selfSigned_));
    station.start();
    auto bookmark = httpsBookmark(station.port());
    bookmark->setAllowUntrustedCertificate(true);
    RecordingOwner owner(folder_);
    Log::Capture log;
    {
        Ripper ripper(owner, *bookmark, false, false);
        ASSERT_TRUE(runUntil([&] { return ripper.trackCount() >= 1 && ripper.bytesRead() > 100000; }));
        EXPECT_TRUE(ripper.untrustedCertificate());
        EXPECT_EQ(ripper.status().rfind("Recording (untrusted certificate) : ", 0), 0u) << ripper.status();
        EXPECT_EQ(ripper.currentStatus().rfind("Recording (untrusted certificate) : ", 0), 0u);
        ripper.userClose();
    }
    EXPECT_TRUE(
        log.contains("with an untrusted certificate (" +
                     std::string(X509_verify_cert_error_string(X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT))));
    EXPECT_FALSE(filesUnder(folder_).empty());
}

// A plain station that redirects to an https one, and back: the scheme of the
// redirection's address is the one the next connection uses.
TEST_F(RipperTlsTest, RedirectionsChangeTheSchemeBothWays) {
    Station secure(tlsStation(trusted_));
    secure.start();
    Station plain(counterStation());
    plain.start();
    StationOptions toSecure = counterStation();
    toSecure.redirectTo = secure.url() + "stream";
    Station redirectToSecure(toSecure);
    redirectToSecure.start();
    StationOptions toPlain = tlsStation(trusted_);
    toPlain.redirectTo = plain.url() + "stream";
    Station redirectToPlain(toPlain);
    redirectToPlain.start();

    struct Case {
        std::shared_ptr<Bookmark> bookmark;
        Station* target;
        const char* scheme;
    };
    const Case cases[] = {{bookmarkFor(redirectToSecure.port()), &secure, "https"},
                          {httpsBookmark(redirectToPlain.port()), &plain, "http"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.scheme);
        RecordingOwner owner(folder_ + "/" + c.scheme);
        Ripper ripper(owner, *c.bookmark, false, false);
        ASSERT_TRUE(runUntil([&] { return ripper.bytesRead() > 50000; }));
        EXPECT_EQ(ripper.bookmark().scheme(), c.scheme);
        EXPECT_EQ(ripper.bookmark().port(), std::to_string(c.target->port()));
        EXPECT_EQ(c.target->clients().size(), 1u);
        ripper.userClose();
    }
}

}  // namespace
}  // namespace quillon::test
