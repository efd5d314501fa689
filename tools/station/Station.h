#pragma once
// An ICY stream server on 127.0.0.1 for tests, benchmarks and the demo. Every
// client gets its own stream from audio offset 0 (StreamGenerator), served by a
// thread of its own; faults are staged as StationOptions describe. With a
// certificate and key it serves over TLS (each client's TLSSession).
//
// Thread contract: construct, start() and stop() from one controlling thread;
// the queries (port, clientCount, clients, titleSchedule) from any thread. The
// station owns its listening socket, a wake-up descriptor and every thread;
// stop() (also run by the destructor) wakes them all, closes every socket and
// joins every thread. `mutex_` guards the client list and records and the
// served files.
#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/TLSSession.h"
#include "platform/FileHandle.h"
#include "station/StationOptions.h"
#include "station/TitlePlan.h"

namespace quillon {

// What the station knows about one client, past or present.
struct StationClient {
    std::uint64_t id = 0;  // 1, 2, ... in order of acceptance
    std::string request;   // the request head as received, blank line included
    std::string path;
    bool metadata = false;  // metadata blocks were sent to this client
    std::uint64_t audioBytesSent = 0;
    std::vector<TitleAnnouncement> announcements;  // titles announced to this client
    bool connected = true;
};

// A file the station serves at one exact request target (path and query)
// instead of its stream; `hangUp` closes the connection without a reply.
struct StationFile {
    std::string contentType;
    std::string body;
    bool hangUp = false;
};

class Station {
public:
    // Throws std::invalid_argument when the options are not valid.
    explicit Station(StationOptions options);
    ~Station();
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    // Listens on 127.0.0.1 and starts serving. Encodes the mp3 loops first, so
    // the first client does not wait for them. Throws std::runtime_error when the
    // port cannot be had, std::logic_error when already started.
    void start();
    // Closes every connection and the listener and joins every thread. Idempotent.
    void stop();

    std::uint16_t port() const { return port_.load(); }
    // "http://127.0.0.1:PORT/" ("https://" when serving over TLS)
    std::string url() const;
    // Clients connected now.
    std::size_t clientCount() const;
    // Every client accepted since start, in order.
    std::vector<StationClient> clients() const;
    // The titles every metadata-enabled client is announced, up to audioBytes.
    std::vector<TitleAnnouncement> titleSchedule(std::uint64_t audioBytes) const;
    const StationOptions& options() const { return options_; }
    // Serves these files from now on, by request target; every other target
    // gets the stream. Any thread.
    void serveFiles(std::map<std::string, StationFile> files);

    static std::uint8_t counterByte(std::uint64_t offset);

private:
    struct Session {
        std::thread thread;
        std::atomic<bool> done{false};
    };

    // One client's connection: its descriptor and, over TLS, its session.
    struct Link {
        int fd = -1;
        std::unique_ptr<TLSSession> tls;
    };

    void acceptLoop();
    void serve(FileHandle socket, std::size_t index);
    void stream(Link& link, std::size_t index, bool wantsMetadata);
    void reapFinished();
    // Sends nothing more; returns once the client has gone or the station stops.
    void waitForHangUp(Link& link);
    void markDisconnected(std::size_t index);

    // Socket helpers that give up when the station stops or the peer is gone.
    bool handshake(Link& link);
    // Some bytes (> 0), or 0 when the client has gone or the station stops.
    std::size_t receive(Link& link, char* buffer, std::size_t size);
    bool sendAll(Link& link, const std::uint8_t* data, std::size_t size);
    bool sendText(Link& link, const std::string& text);
    bool waitFor(int fd, short events, int timeoutMs);

    const StationOptions options_;
    const TitlePlan plan_;
    TLSSession::Context tls_;  // set when serving over TLS
    FileHandle listener_;
    FileHandle wake_;  // an eventfd: readable once stop() has begun
    std::atomic<std::uint16_t> port_{0};
    std::atomic<bool> stopping_{false};
    bool started_ = false;
    std::thread acceptThread_;

    mutable std::mutex mutex_;
    std::vector<StationClient> clients_;
    std::map<std::string, StationFile> files_;
    std::list<std::unique_ptr<Session>> sessions_;
};

}  // namespace quillon
