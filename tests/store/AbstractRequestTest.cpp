#include "store/AbstractRequest.h"

#include <gtest/gtest.h>

#include "platform/NamedException.h"
#include "store/PasswordedRequest.h"
#include "support/Loopback.h"

namespace quillon {
namespace {

struct Owner : RequestOwner {
    std::string h;
    int p = 0;
    bool auth = false;
    std::string user, pass;
    std::string host() const override { return h; }
    int port() const override { return p; }
    bool useAuthentication() const override { return auth; }
    std::string username() const override { return user; }
    std::string password() const override { return pass; }
};

struct WithDefault : PasswordedRequest {
    using PasswordedRequest::PasswordedRequest;
    int defaultPort() const override { return 25; }
};

// What the getter raises, as "name|reason"; "" when it does not raise.
template <typename F>
std::string raised(F&& f) {
    try {
        f();
    } catch (const NamedException& e) {
        return e.name() + "|" + e.reason();
    }
    return {};
}

TEST(AbstractRequestTest, SettersAndGettersRefuseWhatIsMissing) {
    AbstractRequest r;
    struct Case {
        const char* what;
        std::function<void()> call;
        std::string raises;
    };
    const Case cases[] = {
        {"no host", [&] { r.host(); }, "Invalid host|103 Invalid host"},
        {"empty host", [&] { r.setHost(""), r.host(); }, "Invalid host|103 Invalid host"},
        {"port 0", [&] { r.port(); }, "Invalid port|104 Invalid port"},
        {"port 65536", [&] { r.setPort(65536), r.port(); }, "Invalid port|104 Invalid port"},
        {"empty proxy host", [&] { r.setProxyHost(""); }, "Invalid proxy host|Invalid proxy host"},
        {"no proxy port", [&] { r.setProxyPort(std::nullopt); }, "Invalid proxy port|Invalid proxy port"},
        {"a port", [&] { r.setPort(2525), r.port(); }, ""},
    };
    for (const Case& c : cases) EXPECT_EQ(raised(c.call), c.raises) << c.what;
    EXPECT_FALSE(r.useProxy());
    PasswordedRequest p;
    EXPECT_EQ(raised([&] { p.setUserName(std::nullopt); }), "Invalid userName|Invalid userName");
    EXPECT_EQ(raised([&] { p.setPassword(std::nullopt); }), "Invalid password|Invalid password");
    EXPECT_EQ(p.userName(), "");
    EXPECT_FALSE(p.usePassword());
}

TEST(AbstractRequestTest, ParamsComeFromTheOwner) {
    struct Case {
        int ownerPort;
        bool auth;
        int port;
        std::string user, password;
    };
    const Case cases[] = {
        {2525, false, 2525, "", ""},
        {0, false, 25, "", ""},
        {-3, true, 25, "me", "pw"},
    };
    for (const Case& c : cases) {
        Owner owner;
        owner.h = "mail.example.test";
        owner.p = c.ownerPort;
        owner.auth = c.auth;
        owner.user = "me";
        owner.pass = "pw";
        WithDefault r(&owner);
        r.getConnectionParams();
        EXPECT_EQ(r.host(), "mail.example.test");
        EXPECT_EQ(r.port(), c.port);
        EXPECT_EQ(r.userName(), c.user);
        EXPECT_EQ(r.passWord(), c.password);
    }
}

TEST(AbstractRequestTest, CredentialsInBase64) {
    PasswordedRequest r;
    r.setUserName("Aladdin");
    r.setPassword("open sesame");
    EXPECT_EQ(r.authorization(), "Aladdin:open sesame");
    EXPECT_EQ(r.authorization64(), "QWxhZGRpbjpvcGVuIHNlc2FtZQ==");
    EXPECT_EQ(r.userName64(), "QWxhZGRpbg==");
    EXPECT_EQ(r.passWord64(), "b3BlbiBzZXNhbWU=");
    EXPECT_TRUE(r.usePassword());
}

TEST(AbstractRequestTest, ConnectFailureKeepsItsCode) {
    struct Case {
        std::string host;
        int port;
        int code;
    };
    const std::uint16_t closed = test::unusedPort();
    const Case cases[] = {{"", 25, 103}, {"127.0.0.1", 0, 104}, {"127.0.0.1", closed, 105}};
    for (const Case& c : cases) {
        AbstractRequest r;
        if (!c.host.empty()) r.setHost(c.host);
        r.setPort(c.port);
        r.connect();
        EXPECT_FALSE(r.connected());
        EXPECT_EQ(r.resultCode(), c.code) << r.lastError();
        EXPECT_EQ(r.description(),
                  "Request to : " + c.host + " port: " + std::to_string(c.port) + ", Not connected.");
        r.disconnect();
    }
}

TEST(AbstractRequestTest, ConnectAndDisconnectOnLoopback) {
    FileHandle listener = test::listenOnLoopback();
    AbstractRequest r;
    r.setHost("127.0.0.1");
    r.setPort(test::boundPort(listener.fd()));
    r.connect();
    ASSERT_TRUE(r.connected());
    EXPECT_EQ(r.resultCode(), -1);
    EXPECT_EQ(r.IP(), "127.0.0.1");
    EXPECT_EQ(r.remotePort(), test::boundPort(listener.fd()));
    EXPECT_EQ(r.description(), "Request to : 127.0.0.1 port: " +
                                   std::to_string(test::boundPort(listener.fd())) + ", Connected.");
    r.disconnect();
    EXPECT_FALSE(r.connected());
    EXPECT_GE(r.processTime(), 0.0);
    // Interrupted once, it never connects again.
    r.interrupt();
    r.connect();
    EXPECT_FALSE(r.connected());
    EXPECT_EQ(r.resultCode(), 106);
}

}  // namespace
}  // namespace quillon
