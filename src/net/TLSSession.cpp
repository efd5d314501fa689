#include "net/TLSSession.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <cerrno>
#include <climits>

#include "platform/NamedException.h"

namespace quillon {

namespace {

// The texts of OpenSSL's error queue for this thread, emptied.
std::string queueText() {
    std::string text;
    while (unsigned long code = ERR_get_error()) {
        char line[256];
        ERR_error_string_n(code, line, sizeof line);
        if (!text.empty()) text += "; ";
        text += line;
    }
    return text;
}

NamedException tlsError(const std::string& what) {
    std::string detail = queueText();
    return NamedException("TLS error", detail.empty() ? what : what + ": " + detail);
}

bool isAddressLiteral(const std::string& host) {
    unsigned char address[16];
    return inet_pton(AF_INET, host.c_str(), address) == 1 || inet_pton(AF_INET6, host.c_str(), address) == 1;
}

void freeContext(ssl_ctx_st* context) { SSL_CTX_free(context); }
void freeSsl(ssl_st* ssl) { SSL_free(ssl); }

TLSSession::Context newContext(const SSL_METHOD* method) {
    TLSSession::Context context(SSL_CTX_new(method), freeContext);
    if (!context) throw tlsError("cannot make a TLS context");
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    // Stream servers often hang up without the closing alert; the end of the
    // connection is then the end of the stream, as it is without TLS.
    SSL_CTX_set_options(context.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
    return context;
}

}  // namespace

TLSSession::TLSSession(Context context, ssl_st* ssl) : context_(std::move(context)), ssl_(ssl, freeSsl) {}

TLSSession::~TLSSession() = default;

std::unique_ptr<TLSSession> TLSSession::client(int fd, const std::string& host, bool allowUntrusted) {
    ERR_clear_error();
    Context context = newContext(TLS_client_method());
    if (SSL_CTX_set_default_verify_paths(context.get()) != 1) throw tlsError("cannot load the CA store");
    // Without verification the handshake goes through and the result is
    // read afterwards (verifyError), so that the connection can say so.
    SSL_CTX_set_verify(context.get(), allowUntrusted ? SSL_VERIFY_NONE : SSL_VERIFY_PEER, nullptr);
    // A stream is read for hours: several records per read call rather than
    // two calls per record. Every read asks the session first, so bytes it
    // holds ahead are never waited for on the socket.
    SSL_CTX_set_read_ahead(context.get(), 1);
    SSL_CTX_set_default_read_buffer_len(context.get(), kReadAhead);
    ssl_st* ssl = SSL_new(context.get());
    if (!ssl) throw tlsError("cannot make a TLS session");
    std::unique_ptr<TLSSession> session(new TLSSession(std::move(context), ssl));
    SSL_set_mode(ssl, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    if (SSL_set_fd(ssl, fd) != 1) throw tlsError("cannot attach the TLS session");
    // Checks a name against the certificate's DNS names, an address literal
    // against its IP addresses.
    if (SSL_set1_host(ssl, host.c_str()) != 1) throw tlsError("cannot set the expected host name");
    // Server name indication carries host names only, never addresses.
    if (!isAddressLiteral(host) && SSL_set_tlsext_host_name(ssl, host.c_str()) != 1)
        throw tlsError("cannot set the server name");
    SSL_set_connect_state(ssl);
    return session;
}

TLSSession::Context TLSSession::serverContext(const std::string& certificateFile,
                                              const std::string& keyFile) {
    ERR_clear_error();
    Context context = newContext(TLS_server_method());
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificateFile.c_str()) != 1)
        throw tlsError("cannot read the certificate " + certificateFile);
    if (SSL_CTX_use_PrivateKey_file(context.get(), keyFile.c_str(), SSL_FILETYPE_PEM) != 1)
        throw tlsError("cannot read the key " + keyFile);
    if (SSL_CTX_check_private_key(context.get()) != 1)
        throw tlsError("the key " + keyFile + " does not match the certificate");
    return context;
}

std::unique_ptr<TLSSession> TLSSession::server(int fd, Context context) {
    ERR_clear_error();
    ssl_st* ssl = SSL_new(context.get());
    if (!ssl) throw tlsError("cannot make a TLS session");
    std::unique_ptr<TLSSession> session(new TLSSession(std::move(context), ssl));
    SSL_set_mode(ssl, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    if (SSL_set_fd(ssl, fd) != 1) throw tlsError("cannot attach the TLS session");
    SSL_set_accept_state(ssl);
    return session;
}

TLSSession::Result TLSSession::outcome(int result, std::size_t count) {
    if (result == 1) return {Step::Done, count};
    const int code = SSL_get_error(ssl_.get(), result);
    switch (code) {
        case SSL_ERROR_WANT_READ:
            return {Step::WantRead, 0};
        case SSL_ERROR_WANT_WRITE:
            return {Step::WantWrite, 0};
        case SSL_ERROR_ZERO_RETURN:
            return {Step::Closed, 0};
        case SSL_ERROR_SYSCALL: {
            const int saved = errno;
            error_ = queueText();
            if (error_.empty() && saved == 0) return {Step::Closed, 0};
            if (error_.empty()) {
                errno = saved;
                error_ = NamedException::errnoText();
            }
            return {Step::Failed, 0};
        }
        default:
            error_ = queueText();
            if (error_.empty()) error_ = "TLS failure " + std::to_string(code);
            return {Step::Failed, 0};
    }
}

TLSSession::Result TLSSession::handshake() {
    ERR_clear_error();
    errno = 0;
    return outcome(SSL_do_handshake(ssl_.get()), 0);
}

TLSSession::Result TLSSession::read(void* buffer, std::size_t length) {
    ERR_clear_error();
    errno = 0;
    std::size_t got = 0;
    const int result = SSL_read_ex(ssl_.get(), buffer, length, &got);
    return outcome(result == 1 ? 1 : 0, got);
}

TLSSession::Result TLSSession::write(const void* bytes, std::size_t length) {
    ERR_clear_error();
    errno = 0;
    std::size_t sent = 0;
    const int result = SSL_write_ex(ssl_.get(), bytes, length, &sent);
    return outcome(result == 1 ? 1 : 0, sent);
}

std::size_t TLSSession::pending() const {
    const int count = SSL_pending(ssl_.get());
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

void TLSSession::shutdown() {
    ERR_clear_error();
    SSL_shutdown(ssl_.get());
    ERR_clear_error();
}

std::string TLSSession::verifyError() const {
    const long result = SSL_get_verify_result(ssl_.get());
    if (result == X509_V_OK) {
        // No certificate at all (an anonymous suite) is no trust either.
        X509* peer = SSL_get1_peer_certificate(ssl_.get());
        if (!peer) return "no certificate";
        X509_free(peer);
        return {};
    }
    return X509_verify_cert_error_string(result);
}

}  // namespace quillon
