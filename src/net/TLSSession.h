#pragma once
// One TLS session (OpenSSL) over a connected stream socket's descriptor: the
// client side of an https stream and the server side of the test station. It
// owns its SSL object and shares its SSL_CTX; it never owns the descriptor,
// which stays with the socket that made it and must outlive the session.
//
// Every call is one non-blocking step: the descriptor must be in non-blocking
// mode, and a step that needs the network reports which readiness to wait for
// (the caller polls, with its own time-outs, and calls again with the same
// arguments).
//
// Thread contract: one thread at a time uses a session (the thread that reads
// and writes its socket). Contexts are immutable once made and may be shared
// between threads.
#include <cstddef>
#include <memory>
#include <string>

struct ssl_st;
struct ssl_ctx_st;

namespace quillon {

class TLSSession {
public:
    using Context = std::shared_ptr<ssl_ctx_st>;
    // Bytes a client session reads from the socket at once.
    static constexpr std::size_t kReadAhead = 64 * 1024;

    enum class Step {
        Done,       // the step completed (`count` bytes for a read or write)
        WantRead,   // wait until the descriptor is readable, then call again
        WantWrite,  // wait until the descriptor is writable, then call again
        Closed,     // the peer ended the session (or the connection)
        Failed,     // a protocol or system failure; error() tells what
    };
    struct Result {
        Step step = Step::Failed;
        std::size_t count = 0;
    };

    // A client session that checks the server's certificate against the
    // system's CA store (which honours SSL_CERT_FILE and SSL_CERT_DIR) and
    // `host` (a name or an IP literal; a name also goes out as SNI). With
    // `allowUntrusted` the handshake completes whatever the certificate, and
    // verifyError() afterwards tells whether it was trusted. Raises
    // NamedException "TLS error" when OpenSSL cannot make the session.
    static std::unique_ptr<TLSSession> client(int fd, const std::string& host, bool allowUntrusted);
    // A server context with a certificate chain and its private key (PEM
    // files); raises NamedException "TLS error" with OpenSSL's reason.
    static Context serverContext(const std::string& certificateFile, const std::string& keyFile);
    static std::unique_ptr<TLSSession> server(int fd, Context context);

    ~TLSSession();
    TLSSession(const TLSSession&) = delete;
    TLSSession& operator=(const TLSSession&) = delete;

    Result handshake();
    Result read(void* buffer, std::size_t length);
    Result write(const void* bytes, std::size_t length);
    // Plain bytes already decrypted and waiting in the session.
    std::size_t pending() const;
    // Sends the closing alert if the socket takes it now; never waits.
    void shutdown();

    // After the handshake: empty when the certificate was verified, else
    // OpenSSL's reason ("certificate has expired", "hostname mismatch", ...).
    std::string verifyError() const;
    // The last failure's text (OpenSSL's error queue or the system's).
    const std::string& error() const { return error_; }

private:
    TLSSession(Context context, ssl_st* ssl);
    // Turns an OpenSSL result (1: success) into a step.
    Result outcome(int result, std::size_t count);

    Context context_;
    std::unique_ptr<ssl_st, void (*)(ssl_st*)> ssl_;
    std::string error_;
};

}  // namespace quillon
