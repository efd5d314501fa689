#include "station/Station.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "platform/NamedException.h"
#include "station/AssetTones.h"
#include "station/ChunkWriter.h"
#include "station/Mp3Tones.h"
#include "station/StationHttp.h"
#include "station/StreamGenerator.h"

namespace quillon {

namespace {

constexpr std::size_t maxRequestBytes = 16384;

std::runtime_error socketError(const std::string& what) {
    return std::runtime_error("station: " + what + ": " + std::strerror(errno));
}

}  // namespace

namespace {

StationOptions validated(StationOptions options) {
    validate(options);
    return options;
}

}  // namespace

Station::Station(StationOptions options) : options_(validated(std::move(options))), plan_(options_) {}

Station::~Station() { stop(); }

std::uint8_t Station::counterByte(std::uint64_t offset) { return AudioSource::counterByte(offset); }

std::string Station::url() const {
    return (tls_ ? "https" : "http") + std::string("://127.0.0.1:") + std::to_string(port()) + "/";
}

std::size_t Station::clientCount() const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(clients_.begin(), clients_.end(), [](const StationClient& c) { return c.connected; }));
}

std::vector<StationClient> Station::clients() const {
    std::lock_guard lock(mutex_);
    return clients_;
}

std::vector<TitleAnnouncement> Station::titleSchedule(std::uint64_t audioBytes) const {
    return plan_.schedule(audioBytes);
}

void Station::start() {
    if (started_) throw std::logic_error("station already started");
    if (options_.payload == StationPayload::mp3) Mp3Tones::loops(options_.bitrate);
    if (options_.payload == StationPayload::aac) AssetTones::aac();
    if (options_.payload == StationPayload::ogg) AssetTones::ogg();
    if (options_.tlsCertificate) {
        try {
            tls_ = TLSSession::serverContext(*options_.tlsCertificate, *options_.tlsKey);
        } catch (const NamedException& e) {
            throw std::runtime_error("station: " + e.reason());
        }
    }

    FileHandle listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener.isOpen()) throw socketError("socket");
    const int on = 1;
    ::setsockopt(listener.fd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(options_.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(listener.fd(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw socketError("cannot listen on 127.0.0.1:" + std::to_string(options_.port));
    }
    if (::listen(listener.fd(), 128) != 0) throw socketError("listen");
    socklen_t length = sizeof address;
    if (::getsockname(listener.fd(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw socketError("getsockname");
    }
    FileHandle wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake.isOpen()) throw socketError("eventfd");

    listener_ = std::move(listener);
    wake_ = std::move(wake);
    port_ = ntohs(address.sin_port);
    started_ = true;
    acceptThread_ = std::thread([this] { acceptLoop(); });
}

void Station::stop() {
    if (!started_ || stopping_.exchange(true)) return;
    const std::uint64_t one = 1;
    // An eventfd that is never read stays readable: every waiting thread wakes.
    [[maybe_unused]] const auto ignored = ::write(wake_.fd(), &one, sizeof one);
    if (acceptThread_.joinable()) acceptThread_.join();
    std::list<std::unique_ptr<Session>> sessions;
    {
        std::lock_guard lock(mutex_);
        sessions.swap(sessions_);
    }
    for (auto& session : sessions) {
        if (session->thread.joinable()) session->thread.join();
    }
    listener_.close();
}

bool Station::waitFor(int fd, short events, int timeoutMs) {
    pollfd fds[2] = {{fd, events, 0}, {wake_.fd(), POLLIN, 0}};
    while (true) {
        const int ready = ::poll(fds, 2, timeoutMs);
        if (ready < 0 && errno == EINTR) continue;
        return !(fds[1].revents & POLLIN) && !stopping_.load();
    }
}

bool Station::handshake(Link& link) {
    while (true) {
        const TLSSession::Result result = link.tls->handshake();
        if (result.step == TLSSession::Step::Done) return true;
        if (result.step == TLSSession::Step::WantRead || result.step == TLSSession::Step::WantWrite) {
            const short events = result.step == TLSSession::Step::WantRead ? POLLIN : POLLOUT;
            if (!waitFor(link.fd, events, -1)) return false;
            continue;
        }
        return false;  // the client refused the certificate, or left
    }
}

std::size_t Station::receive(Link& link, char* buffer, std::size_t size) {
    while (true) {
        short events = POLLIN;
        if (link.tls) {
            const TLSSession::Result result = link.tls->read(buffer, size);
            if (result.step == TLSSession::Step::Done) return result.count;
            if (result.step != TLSSession::Step::WantRead && result.step != TLSSession::Step::WantWrite)
                return 0;
            if (result.step == TLSSession::Step::WantWrite) events = POLLOUT;
        } else {
            const ssize_t got = ::recv(link.fd, buffer, size, 0);
            if (got > 0) return static_cast<std::size_t>(got);
            if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) return 0;
        }
        if (!waitFor(link.fd, events, -1)) return 0;
    }
}

bool Station::sendAll(Link& link, const std::uint8_t* data, std::size_t size) {
    if (link.tls) {
        while (size > 0) {
            const TLSSession::Result result = link.tls->write(data, size);
            if (result.step == TLSSession::Step::Done) {
                data += result.count;
                size -= result.count;
            } else if (result.step == TLSSession::Step::WantRead ||
                       result.step == TLSSession::Step::WantWrite) {
                if (!waitFor(link.fd, result.step == TLSSession::Step::WantRead ? POLLIN : POLLOUT, -1))
                    return false;
            } else {
                return false;
            }
        }
        return true;
    }
    const int fd = link.fd;
    while (size > 0) {
        const ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
        if (sent > 0) {
            data += sent;
            size -= static_cast<std::size_t>(sent);
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            if (!waitFor(fd, POLLOUT, -1)) return false;
        } else {
            return false;
        }
    }
    return true;
}

bool Station::sendText(Link& link, const std::string& text) {
    return sendAll(link, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

void Station::acceptLoop() {
    while (waitFor(listener_.fd(), POLLIN, -1)) {
        FileHandle client(::accept4(listener_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        const int acceptError = errno;
        reapFinished();
        if (!client.isOpen()) {
            // Out of descriptors: give the sessions a moment to end instead of spinning.
            if (acceptError == EMFILE || acceptError == ENFILE) waitFor(-1, 0, 100);
            continue;
        }
        std::lock_guard lock(mutex_);
        const std::size_t index = clients_.size();
        clients_.emplace_back().id = index + 1;
        auto session = std::make_unique<Session>();
        Session* raw = session.get();
        sessions_.push_back(std::move(session));
        raw->thread = std::thread([this, raw, index, socket = std::move(client)]() mutable {
            serve(std::move(socket), index);
            markDisconnected(index);
            raw->done = true;
        });
    }
}

void Station::serveFiles(std::map<std::string, StationFile> files) {
    std::lock_guard lock(mutex_);
    files_ = std::move(files);
}

void Station::reapFinished() {
    std::list<std::unique_ptr<Session>> finished;
    {
        std::lock_guard lock(mutex_);
        for (auto it = sessions_.begin(); it != sessions_.end();) {
            auto next = std::next(it);
            if ((*it)->done) finished.splice(finished.end(), sessions_, it);
            it = next;
        }
    }
    for (auto& session : finished) session->thread.join();
}

void Station::markDisconnected(std::size_t index) {
    std::lock_guard lock(mutex_);
    clients_[index].connected = false;
}

void Station::serve(FileHandle socket, std::size_t index) {
    Link link;
    link.fd = socket.fd();
    if (tls_) {
        try {
            link.tls = TLSSession::server(link.fd, tls_);
        } catch (const NamedException&) {
            return;
        }
        if (!handshake(link)) return;
    }
    std::string head;
    char chunk[4096];
    while (head.find("\r\n\r\n") == std::string::npos) {
        if (head.size() > maxRequestBytes) {
            sendText(link, StationHttp::badRequest());
            return;
        }
        const std::size_t got = receive(link, chunk, sizeof chunk);
        if (got == 0) return;  // the client left before finishing its request
        head.append(chunk, got);
    }
    head.resize(head.find("\r\n\r\n") + 4);
    const auto request = StationHttp::parseRequest(head);
    {
        std::lock_guard lock(mutex_);
        clients_[index].request = head;
        if (request) clients_[index].path = request->path;
    }
    std::optional<StationFile> file;
    if (request) {
        std::lock_guard lock(mutex_);
        if (auto it = files_.find(request->path); it != files_.end()) file = it->second;
    }
    if (!request || request->method != "GET") {
        sendText(link, StationHttp::badRequest());
    } else if (file) {
        if (!file->hangUp) sendText(link, StationHttp::fileReply(file->contentType, file->body));
    } else if (options_.redirectTo) {
        sendText(link, StationHttp::redirect(*options_.redirectTo));
    } else if (options_.redirectToSelf) {
        sendText(link, StationHttp::redirect(url()));
    } else if (options_.refuse) {
        sendText(link, StationHttp::refusal(*options_.refuse, options_.status));
    } else {
        stream(link, index, request->wantsMetadata);
    }
    // Finish with a FIN rather than a reset, so the client reads every byte sent.
    if (link.tls) link.tls->shutdown();
    ::shutdown(link.fd, SHUT_WR);
    while (::recv(link.fd, chunk, sizeof chunk, 0) > 0) {
    }
}

void Station::stream(Link& link, std::size_t index, bool wantsMetadata) {
    const bool metadata = wantsMetadata && options_.metaint > 0;
    {
        std::lock_guard lock(mutex_);
        clients_[index].metadata = metadata;
    }
    if (!sendText(link, StationHttp::streamHeader(options_, metadata ? options_.metaint : 0))) return;

    if (options_.silentAfterHeader) {
        waitForHangUp(link);
        return;
    }

    using Clock = std::chrono::steady_clock;
    const bool paced = options_.rate == StationRate::realtime;
    const double bytesPerSecond = options_.bitrate * 125.0;
    const std::size_t chunkAudio =
        paced ? std::clamp<std::size_t>(static_cast<std::size_t>(bytesPerSecond / 10), 256, 16384) : 16384;
    StreamGenerator generator(options_, metadata);
    ChunkWriter chunks;
    Bytes out, wire;
    const auto begin = Clock::now();
    while (!generator.ended() && !stopping_.load()) {
        if (paced) {
            const auto due =
                begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                            static_cast<double>(generator.audioOffset()) / bytesPerSecond));
            const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
            if (wait > 0 && !waitFor(-1, 0, static_cast<int>(wait))) return;
        }
        out.clear();
        const std::size_t before = generator.announcements().size();
        generator.produce(out, chunkAudio);
        const bool broken = options_.badChunkAt && generator.audioOffset() >= *options_.badChunkAt;
        if (options_.chunked) {
            wire.clear();
            chunks.append(out, wire);
            if (broken) {
                const std::string bad = ChunkWriter::badChunk();
                wire.insert(wire.end(), bad.begin(), bad.end());
            }
        }
        const Bytes& sending = options_.chunked ? wire : out;
        if (!sendAll(link, sending.data(), sending.size())) return;
        {
            std::lock_guard lock(mutex_);
            StationClient& client = clients_[index];
            client.audioBytesSent = generator.audioOffset();
            const auto& made = generator.announcements();
            client.announcements.insert(client.announcements.end(),
                                        made.begin() + static_cast<std::ptrdiff_t>(before), made.end());
        }
        if (broken) {
            waitForHangUp(link);
            return;
        }
    }
    if (options_.chunked && generator.ended() && !sendText(link, ChunkWriter::lastChunk())) return;
    if (options_.holdOpen && generator.ended()) waitForHangUp(link);
}

void Station::waitForHangUp(Link& link) {
    char discard[1024];
    while (receive(link, discard, sizeof discard) > 0) {
    }
}

}  // namespace quillon
