#include "engine/Ripper.h"

#include <fmt/format.h>

#include "engine/ConnectionTimer.h"
#include "engine/RelayBlockPool.h"
#include "engine/RipperOwner.h"
#include "engine/StreamRequest.h"
#include "net/TCPSocket.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/NamedException.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "platform/VoObject.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"
#include "store/Url.h"

namespace quillon {

namespace {

std::uint64_t nextId() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}
constexpr std::size_t kHeaderMax = 16384;
constexpr int kMaxAttempts = 10;
// Deliberate bound: a server that redirects for ever (to itself, say) fails
// the attempt instead of being followed at thousands of connections a second.
constexpr int kMaxRedirects = 10;
constexpr std::string_view kDiskError = QLNBuffer::kDiskError;
// The name of the failure raised for a stream whose transfer framing is broken.
constexpr std::string_view kStreamError = "Stream framing error";
// The name of the failure raised for an https server whose certificate does not verify.
constexpr std::string_view kUntrusted = "certificate not trusted";

// The port of a redirection's address: its own, else the scheme's.
std::string redirectPort(const Url& url) {
    if (url.port) return std::to_string(*url.port);
    return std::to_string(Bookmark::defaultPort(url.scheme.value_or("http")));
}

}  // namespace

Ripper::Ripper(RipperOwner& owner, const Bookmark& bookmark, bool relayOnly, bool autoListen,
               ConnectionServices services)
    : owner_(owner), bookmark_(bookmark.copyAs<Bookmark>()), services_(std::move(services)), id_(nextId()) {
    relayOnly_ = relayOnly;
    autolisten_ = autoListen;
    start();
}

Ripper::~Ripper() {
    // The title source's thread asks this connection for its state: it goes first.
    titleSource_.reset();
    detachTimer();
    off_ = true;
    tryAgain_ = false;
    sleepWake_.notify_all();
    shutdownSocket();
    joinThread();
    *alive_ = false;
    if (relay_) relay_->disposeOwner();
}

void Ripper::joinThread() {
    // The thread may wait in invoke() for this (main) thread: release it first.
    if (guard_) guard_->cancel();
    if (thread_.joinable()) thread_.join();
}

void Ripper::start() {
    joinThread();
    ++runNumber_;
    settings_ = ConnectionSettings::fromPreferences(*Preferences::preferences());
    off_ = false;
    errorCount_ = 0;
    untrusted_ = false;
    endReason_ = EndReason::None;
    {
        std::lock_guard info(infoMutex_);
        endText_.clear();
    }
    initAll();
    createFolderHierarchy();
    guard_ = std::make_unique<InvokeGuard>();
    threadActive_ = true;
    thread_ = std::thread([this, socket = replaceSocket()] {
        startRipping(socket);
        threadActive_ = false;
        // Whoever waits on the main loop for the connection's end sees it now.
        refreshStatus();
    });
}

void Ripper::initAll() {
    std::lock_guard lock(locker_);
    close();
    lname_.clear();
    { sink_.reset(bookmark_->recOffset()); }
    {
        std::lock_guard info(infoMutex_);
        downloadPath_.clear();
        currentTrack_.clear();
        filename_.clear();
        status_.clear();
        streamHeader_ = StreamHeader();
        streamHeader_.setTitle(bookmark_->name().value_or(""));
    }
    relay_ = services_.makeRelay ? services_.makeRelay(*this) : nullptr;
    {
        std::lock_guard b(bufferLock_);
        demuxer_.clear();
    }
    tryAgain_ = true;
    trackNum_ = 0;
    firstFileOfRun_ = true;
    servePort_ = owner_.firstFreeRelay();
    useMeta_ = !bookmark_->noSplit();
    titleSource_.reset();
}

void Ripper::close() {
    // The reader feeds the relay under the buffer lock, and the connection
    // thread and the main thread may both close; the relay's own threads are
    // joined outside the lock.
    std::shared_ptr<ConnectionRelay> gone;
    {
        std::lock_guard b(bufferLock_);
        gone.swap(relay_);
    }
    if (gone) gone->disposeOwner();
    gone.reset();
    shutdownSocket();
    tryAgain_ = false;
    servePort_ = 0;
    setState(State::Stopped);
}

void Ripper::userClose() {
    setEnd(EndReason::UserStopped, "");
    off_ = true;
    autolisten_ = false;
    {
        std::lock_guard info(infoMutex_);
        genericTitle_.reset();
    }
    if (MainLoop::main().isMainThread()) {
        detachTimer();
    } else {
        // Stop after this track, a disk error or a refused connection close on
        // the connection thread; the rule belongs to the main thread.
        // A rule that has restarted the connection since holds the new run.
        std::weak_ptr<bool> alive = alive_;
        MainLoop::main().post([this, alive, run = runNumber_.load()] {
            if (auto a = alive.lock(); a && *a && run == runNumber_) detachTimer();
        });
    }
    sleepWake_.notify_all();
    close();
}

void Ripper::setTimer(const std::shared_ptr<ConnectionTimer>& timer) { timer_ = timer; }

bool Ripper::hasTimer() const { return !timer_.expired(); }

std::optional<std::chrono::system_clock::time_point> Ripper::currentEndDate() const {
    if (auto timer = timer_.lock()) return timer->currentEndDate();
    return std::nullopt;
}

void Ripper::detachTimer() {
    auto timer = timer_.lock();
    timer_.reset();
    if (timer) timer->connectionClosed(*this);
}

void Ripper::invalidate() {
    userClose();
    state_ = State::Finished;
    std::lock_guard info(infoMutex_);
    status_ = localized("Stopped", "Stopped");
}

void Ripper::setCloseAfterThisTrack(bool on) { closeAfterThisTrack_ = on; }

bool Ripper::toggleCloseAfterThisTrack() {
    if (!trackSeparationOn()) return false;
    closeAfterThisTrack_ = !closeAfterThisTrack_;
    return true;
}

bool Ripper::trackSeparationOn() const { return !genericName_ && trackNum_ > 1; }

void Ripper::setRelayOnly(bool on) {
    if (on != relayOnly_) {
        relayOnly_ = on;
        setupFile(!on, true);
    }
    if (state_ >= State::Recording) setState(on ? State::Relaying : State::Recording);
}

// ---- queries ---------------------------------------------------------------

std::string Ripper::status() const {
    std::lock_guard lock(infoMutex_);
    return status_;
}

std::string Ripper::currentTrack() const {
    std::lock_guard lock(infoMutex_);
    return currentTrack_;
}

std::string Ripper::downloadPath() const {
    std::lock_guard lock(infoMutex_);
    return downloadPath_;
}

std::string Ripper::filename() const {
    std::lock_guard lock(infoMutex_);
    return filename_;
}

StreamHeader Ripper::streamHeader() const {
    std::lock_guard lock(infoMutex_);
    return streamHeader_;
}

std::string Ripper::title() const {
    std::lock_guard lock(infoMutex_);
    return streamHeader_.title();
}

std::string Ripper::connName() const { return bookmark_->connName().value_or(""); }

std::chrono::system_clock::time_point Ripper::connectionDate() const {
    std::lock_guard lock(infoMutex_);
    return connectionDate_;
}

std::string Ripper::currentStatus() const {
    if (state_ < State::Recording) return localized("idle", "Idle");
    return streamingText(relayOnly_) + currentTrack();
}

std::string Ripper::streamingText(bool relaying) const {
    if (untrusted_) {
        return relaying ? localized("relayingUntrusted", "Relay (no record, untrusted certificate) : ")
                        : localized("recordingUntrusted", "Recording (untrusted certificate) : ");
    }
    return relaying ? localized("relaying", "Relay (no record) : ") : localized("recording", "Recording : ");
}

std::string Ripper::description() const {
    std::lock_guard lock(infoMutex_);
    return fmt::format("{}\r\nName : {}\r\nGenre : {}\r\nURL : {}\r\nBitrate : {}", streamHeader_.title(),
                       streamHeader_.name(), streamHeader_.genre(), streamHeader_.url(),
                       streamHeader_.bitRate());
}

std::string Ripper::bitrateImage() const {
    unsigned rate = bitRate_;
    if (rate == 0 || state_ < State::Recording) return "none.psd";
    if (rate > 127) return "high.psd";
    if (rate > 62) return "med.psd";
    return "low.psd";
}

int Ripper::clientsCount() const {
    std::lock_guard lock(bufferLock_);  // close() drops the relay under it
    return relay_ ? relay_->count() : 0;
}

std::uint16_t Ripper::relayPort() const {
    std::lock_guard lock(bufferLock_);  // close() drops the relay under it
    return relay_ ? relay_->port() : 0;
}

void Ripper::refreshStatus() {
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().post([this, alive] {
        if (auto a = alive.lock(); a && *a) owner_.refreshDetails(*this);
    });
}

int Ripper::filledValue() const { return static_cast<int>(sink_.filledValue()); }

// ---- status ----------------------------------------------------------------

void Ripper::setState(State state) {
    if (state_ == State::Finished) return;
    // Once the user has closed the connection, its thread, still unwinding,
    // must not show it as connecting or recording again.
    if (off_ && state != State::Stopped && state != State::Finished) return;
    state_ = state;
    std::string text;
    switch (state) {
        case State::Finished:
        case State::Stopped:
            text = localized("Stopped", "Stopped");
            break;
        case State::Connecting:
            text = localized("connect", "Connecting ...");
            break;
        case State::WaitingToReconnect:
            text = localized("reconnect", "Reconnecting ...");
            break;
        case State::Redirected:
            text = localized("Redirecting", "Server redirection ...");
            break;
        case State::Recording:
        case State::Relaying:
            text = streamingText(state == State::Relaying) + currentTrack();
            break;
    }
    {
        std::lock_guard lock(infoMutex_);
        status_ = text;
    }
    if (state != State::Finished) runOnMain([this] { owner_.refreshDetails(*this); });
}

void Ripper::runOnMain(const std::function<void()>& task) {
    MainLoop& loop = MainLoop::main();
    if (loop.isMainThread() || !guard_) {
        if (loop.isMainThread()) task();
        return;
    }
    loop.invoke(task, *guard_);
}

void Ripper::setValues(unsigned bufferSize, bool meta, State state, unsigned bitrate) {
    bufferSize_ = bufferSize == 0 ? kDefaultBlockSize : bufferSize;
    hasMeta_ = meta;
    {
        std::lock_guard lock(bufferLock_);
        demuxer_ = IcyDemuxer(bufferSize_, meta);
    }
    bitRate_ = bitrate;
    setState(state);
}

// ---- socket ----------------------------------------------------------------

std::shared_ptr<TCPSocket> Ripper::replaceSocket() {
    auto fresh = std::make_shared<TCPSocket>();
    std::lock_guard lock(socketMutex_);
    socket_ = fresh;
    return fresh;
}

void Ripper::shutdownSocket() {
    std::lock_guard lock(socketMutex_);
    // Wakes a read or write of the connection thread; the thread closes it.
    if (socket_) socket_->interrupt();
}

bool Ripper::sleepUnlessOff(double seconds) {
    std::unique_lock lock(sleepMutex_);
    sleepWake_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return off_.load(); });
    return !off_;
}

void Ripper::openTunnel(TCPSocket& socket) {
    StreamRequestParams params;
    params.host = bookmark_->host().value_or("");
    params.port = bookmark_->port().value_or("");
    socket.writeString(tunnelRequest(params), timing().streamReadTimeout);
    static constexpr std::uint8_t kEnd[] = {'\r', '\n', '\r', '\n'};
    Bytes reply = socket.readDataUpToData(kEnd, kHeaderMax, timing().streamReadTimeout);
    bytesRead_ += reply.size();
    const std::string_view text = asText(reply);
    // A reply as long as the bound never ended: no tunnel either.
    if (reply.size() >= kHeaderMax || !tunnelOpened(text)) {
        const std::string status = printable(text.substr(0, std::min(text.find("\r\n"), std::size_t{80})));
        throw NamedException("Server Error", "The proxy refused the tunnel: " +
                                                 (status.empty() ? std::string("no answer") : status));
    }
}

void Ripper::secureSocket(TCPSocket& socket) {
    const std::string host = bookmark_->host().value_or("");
    const bool allow = bookmark_->allowUntrustedCertificate();
    const std::string why = socket.startTls(host, allow, timing().streamReadTimeout);
    untrusted_ = !why.empty();
    // Only the bookmark's own option lets an untrusted server through; the
    // user hears of it every time it does.
    if (untrusted_)
        Log::warning(
            fmt::format("{}: recording from {} with an untrusted certificate ({}), as the "
                        "bookmark allows",
                        connName(), host, why));
}

std::string Ripper::logHeader() const {
    StreamRequestParams params;
    params.host = bookmark_->host().value_or("");
    params.port = bookmark_->port().value_or("");
    params.path = bookmark_->path();
    params.authentication = bookmark_->authentication();
    // An https stream goes through the proxy's tunnel: the request is then
    // the one the stream's own server takes.
    params.proxyOn = settings_.proxyOn && !bookmark_->secure();
    params.userAgent = settings_.userAgent;
    return quillon::logHeader(params);
}

// ---- connection thread -----------------------------------------------------

void Ripper::startRipping(std::shared_ptr<TCPSocket> socket) {
    const bool proxyOn = settings_.proxyOn;
    const std::string& proxyHost = settings_.proxyHost;
    const std::string& proxyPort = settings_.proxyPort;
    int attempts = 0;
    int redirects = 0;
    bool connected = false;
    std::string lastFailure;
    try {
        while (state_ < State::Recording && tryAgain_ && attempts < kMaxAttempts && !off_) {
            try {
                setState(State::Connecting);
                std::string host = proxyOn ? proxyHost : bookmark_->host().value_or("");
                auto port = static_cast<std::uint16_t>(
                    intValue(proxyOn ? proxyPort : bookmark_->port().value_or("")));
                if (!socket->connectToHostName(host, port))
                    throw NamedException("Server Error", "Server refused connection");
                if (bookmark_->secure()) {
                    if (proxyOn) openTunnel(*socket);
                    secureSocket(*socket);
                }
                int result = connect(*socket);
                connected = result == 0;
                if (result == 1) {
                    if (++redirects > kMaxRedirects)
                        throw NamedException("Server Error", "Too many redirections");
                    socket = replaceSocket();
                    setState(State::Redirected);
                } else if (result != 0) {
                    throw NamedException("Server Error", "Server refused connection");
                }
                std::lock_guard info(infoMutex_);
                connectionDate_ = std::chrono::system_clock::now();
            } catch (const NamedException& e) {
                // Neither a broken framing nor an untrusted server is mended by trying again.
                if (e.name() == kStreamError || e.name() == kUntrusted) throw;
                // One failed attempt; its reason is worth a line of its own.
                Log::line(e.reason());
                lastFailure = e.reason();
                ++attempts;
                redirects = 0;
                ++errorCount_;
                {
                    std::lock_guard info(infoMutex_);
                    connectionDate_ = std::chrono::system_clock::now();
                }
                if (!settings_.reconnect || state_ == State::Finished) {
                    setState(State::Stopped);
                    break;
                }
                setState(State::WaitingToReconnect);
                if (!sleepUnlessOff(timing().connectRetryDelay)) break;
                socket = replaceSocket();
            }
        }
        if (state_ >= State::Recording) {
            readStreaming(*socket);
            finishRecording();
            if (endReason_ == EndReason::DiskError) showFailure();
        } else if (connected && off_) {
            // Stopped just as streaming began: what came is kept all the same.
            keepArrived(*socket);
            finishRecording();
            if (endReason_ == EndReason::DiskError) showFailure();
        } else {
            --errorCount_;
            setEnd(EndReason::Refused, lastFailure.empty() ? "Cannot connect to server" : lastFailure);
            userClose();
            throw NamedException("Cannot connect to server", "Cannot connect to server");
        }
    } catch (const NamedException& e) {
        ++errorCount_;
        // A disk error and a framing error are logged below, with the connection's name.
        if (e.name() != kDiskError && e.name() != kStreamError) Log::line(e.reason());
        finishRecording();
        if (e.name() == kDiskError) setEnd(EndReason::DiskError, e.reason());
        if (e.name() == kStreamError) setEnd(EndReason::Lost, e.reason());
        if (e.name() == kUntrusted) setEnd(EndReason::Untrusted, e.reason());
        if (endReason_ == EndReason::DiskError || e.name() == kStreamError || e.name() == kUntrusted) {
            showFailure();
            return;
        }
        if (!off_) setEnd(EndReason::Lost, e.reason());
        close();
        setCurrentTrack("");
        if (off_) {
            userClose();
            return;
        }
        if (settings_.reconnect && sleepUnlessOff(timing().restartDelay)) {
            setState(State::WaitingToReconnect);
            std::weak_ptr<bool> alive = alive_;
            MainLoop::main().post([this, alive] {
                if (auto a = alive.lock(); a && *a && !off_) start();
            });
        }
    }
}

void Ripper::showFailure() {
    // Deliberate: a disk that cannot take the audio ends the connection loudly
    // instead of recording on into nothing; no reconnect helps. So does a
    // server whose chunks cannot be told apart: what follows could not be
    // trusted to be the stream.
    userClose();
    const std::string text = endReasonText();
    Log::line(fmt::format("{}: {}", connName(), text));
    {
        std::lock_guard info(infoMutex_);
        status_ = text;
    }
    setCurrentTrack("");
    runOnMain([this] { owner_.refreshDetails(*this); });
}

void Ripper::setEnd(EndReason reason, const std::string& text) {
    // The first reason of a run is the one that counts (a disk error is not
    // turned into a user's stop by the close that follows it), except that a
    // disk error outranks any other: it is what the user must hear of.
    EndReason current = EndReason::None;
    if (!endReason_.compare_exchange_strong(current, reason)) {
        if (reason != EndReason::DiskError || current == EndReason::DiskError) return;
        endReason_ = reason;
    }
    std::lock_guard info(infoMutex_);
    endText_ = text;
}

std::string Ripper::endReasonText() const {
    std::string text;
    {
        std::lock_guard info(infoMutex_);
        text = endText_;
    }
    auto with = [&](const char* what) {
        return text.empty() ? std::string(what) : fmt::format("{}: {}", what, text);
    };
    switch (endReason_.load()) {
        case EndReason::None:
            return "";
        case EndReason::UserStopped:
            return "stopped by the user";
        case EndReason::ServerEnded:
            return "stream ended by the server";
        case EndReason::Lost:
            return with("connection lost");
        case EndReason::Refused:
            return with("refused");
        case EndReason::DiskError:
            // The failure's own text already begins "Disk error: ...".
            return text.empty() ? std::string(kDiskError) : text;
        case EndReason::Untrusted:
            // As does this one: "certificate not trusted: ...".
            return text.empty() ? std::string(kUntrusted) : text;
    }
    return "";
}

void Ripper::readStreaming(TCPSocket& socket) {
    { sink_.initValues(bitRate_, format_); }
    {
        std::lock_guard b(bufferLock_);
        if (relay_) relay_->startFeeding();
    }
    if (!useMeta_) {
        if (settings_.sizeSplit()) {
            trackSplit_ = true;
            trackSize_ = settings_.chunkSizeMiB;
            trackNum_ = 1;
            runOnMain([this] { setNoNameFile(); });
        } else {
            runOnMain([this] { setFileName(""); });
        }
        sink_.raiseFailure();
    }
    // Deliberate: the block ahead of the first title is the start of the
    // first, partial track, not a block to prime the connection with and
    // throw away; it goes to the first file.
    if (!relayOnly_) sink_.add(firstBlock_);
    firstBlock_.clear();
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().post([this, alive] {
        if (auto a = alive.lock(); a && *a) startDataLoader();
    });
    readScratch_.resize(bufferSize_);
    while (state_ >= State::Recording) {
        std::size_t want = bufferSize_;
        if (readScratch_.size() < want) readScratch_.resize(want);
        std::size_t got = 0;
        try {
            got = socket.readBytesToBuffer(readScratch_.data(), static_cast<std::int64_t>(want),
                                           timing().streamReadTimeout, &got);
        } catch (const NamedException&) {
            // What arrived before a time-out or a failure is still audio to
            // keep, and so is what the socket holds when the user stopped.
            keepReceived(got);
            if (off_) keepArrived(socket);
            throw;
        }
        keepReceived(got);
        if (got != want || chunksEnded()) {
            // A short read is the stream's end (or the user's stop), and so is the last chunk.
            if (!off_) setEnd(EndReason::ServerEnded, "");
            throw NamedException("Stream lost sync", "Stream lost sync");
        }
        dataLoaderTimer();
    }
    // Stopped between two reads: what the socket already holds is kept too.
    keepArrived(socket);
}

void Ripper::keepArrived(TCPSocket& socket) {
    while (std::size_t got = socket.readArrived(readScratch_.data(), readScratch_.size())) keepReceived(got);
}

void Ripper::keepReceived(std::size_t count) {
    bytesRead_ += count;
    std::span<const std::uint8_t> received(readScratch_.data(), count);
    if (chunks_) {
        // The meta interval counts the stream's own bytes: the chunk framing goes first.
        unchunked_.clear();
        chunks_->decode(received, unchunked_);
        received = unchunked_;
    }
    {
        std::lock_guard lock(bufferLock_);
        demuxer_.append(received);
    }
    // What was decoded before the break is kept; nothing after it is.
    if (chunks_ && chunks_->status() == ChunkedDecoder::Status::Malformed)
        throw NamedException(std::string(kStreamError), chunks_->error());
}

bool Ripper::chunksEnded() const { return chunks_ && chunks_->status() == ChunkedDecoder::Status::Ended; }

void Ripper::finishRecording() {
    // Deliberate: what the lookahead and the delay line hold is written out at
    // every end (stop, end of stream, failure, reconnect, quit); a recording
    // then ends where the stream did, not 30 seconds earlier.
    // After a disk error nothing more is written; the files are as they are.
    if (endReason_ != EndReason::DiskError) {
        try {
            while (getData(blockScratch_, true))
                if (!relayOnly_) sink_.add(blockScratch_);
            sink_.finish();
        } catch (const NamedException& e) {
            // A disk error is shown and logged by the caller, with the connection's name.
            if (e.name() == kDiskError)
                setEnd(EndReason::DiskError, e.reason());
            else
                Log::line(e.reason());
        }
    }
}

void Ripper::startDataLoader() {
    if (!autolisten_) return;
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().addTimer(timing().autoListenDelay, [this, alive] {
        auto a = alive.lock();
        if (!a || !*a) return;
        // The connection's thread may drop the relay at any time, under the
        // buffer lock; the player is started outside it, so that the reader
        // never waits for a child process.
        std::shared_ptr<ConnectionRelay> relay;
        {
            std::lock_guard lock(bufferLock_);
            relay = relay_;
        }
        if (relay) relay->listenOnce();
    });
}

int Ripper::connect(TCPSocket& socket) {
    setValues(kDefaultBlockSize, false, State::Connecting, 0);
    chunks_.reset();
    std::string request = logHeader();
    socket.writeString(request, timing().streamReadTimeout);
    static constexpr std::uint8_t kEnd[] = {'\r', '\n', '\r', '\n'};
    Bytes header = socket.readDataUpToData(kEnd, kHeaderMax, timing().streamReadTimeout);
    bytesRead_ += header.size();
    if (settings_.sizeSplit()) {
        trackSplit_ = true;
        trackSize_ = settings_.chunkSizeMiB;
    }
    if (header.empty()) {
        useMeta_ = false;
        setState(State::Recording);
        return 0;
    }
    // Deliberate: found without regard to case, as every header key, and
    // with or without a blank after the colon.
    if (auto location = StreamHeader::lineValue(header, "location:")) {
        auto url = Url::parse(std::string(trimmedBlanks(*location)));
        if (!url) return -1;
        // A redirection may change the scheme either way (http to https and back).
        bookmark_->setScheme(url->scheme.value_or(bookmark_->scheme()));
        bookmark_->setHost(url->host);
        bookmark_->setPort(redirectPort(*url));
        std::string path = url->path.empty() ? "/" : url->path;
        if (url->query && !url->query->empty()) path = fmt::format("{}?{}", path, *url->query);
        bookmark_->setPath(path);
        return 1;
    }
    StreamHeader parsed;
    {
        std::lock_guard info(infoMutex_);
        parsed = streamHeader_;
    }
    parsed.parseHeader(header);
    {
        std::lock_guard info(infoMutex_);
        streamHeader_ = parsed;
    }
    // A refusal names its reason ("Not found", "Invalid meta interval: -1").
    if (parsed.error()) throw NamedException("Server Error", parsed.errorType());
    format_ = audioFormatForContentType(parsed.contentType());
    setValues(static_cast<unsigned>(parsed.metaInt()), parsed.hasMeta(), State::Recording,
              static_cast<unsigned>(parsed.bitRate()));
    // Made once the state is recording: a title source polls while the
    // connection streams, and its first look must find it streaming.
    {
        std::lock_guard lock(pageTitleMutex_);
        pageTitle_.reset();
    }
    titleSource_ = services_.makeTitleSource ? services_.makeTitleSource(*this, logHeader()) : nullptr;

    if (parsed.chunked()) chunks_.emplace();
    const std::size_t want = bufferSize_ + IcyDemuxer::kLookahead;
    readScratch_.resize(want);
    // The first block and the lookahead; chunk framing takes room on the wire,
    // so a chunked stream may take more than one read to fill them.
    for (std::size_t held = 0; held < want && !chunksEnded();) {
        const std::size_t ask = want - held;
        const std::size_t got = socket.readBytesToBuffer(readScratch_.data(), static_cast<std::int64_t>(ask),
                                                         timing().streamReadTimeout);
        keepReceived(got);
        if (got < ask) break;
        std::lock_guard lock(bufferLock_);
        held = demuxer_.held();
    }
    if (!getData(blockScratch_, false)) {
        setState(State::Connecting);
        return -1;
    }
    firstBlock_.swap(blockScratch_);
    if (!hasMeta_ && !(titleSource_ && titleSource_->enabled())) {
        // Size-split recordings open their first chunk, numbered 001, once
        // streaming starts; opening one here would leave an empty chunk 000.
        if (!trackSplit_) runOnMain([this] { setFileName(""); });
        useMeta_ = false;
        sink_.raiseFailure();
    }
    return 0;
}

bool Ripper::getData(Bytes& block, bool atEnd) {
    enum class Then { Nothing, Title, Untitled } then = Then::Nothing;
    {
        std::lock_guard lock(bufferLock_);
        auto cut = atEnd ? demuxer_.nextAtEnd() : demuxer_.next();
        if (!cut) return false;
        block.assign(cut->audio.begin(), cut->audio.end());
        if (relay_ && !atEnd) {
            // The relay's blocks come from a pool of this connection thread:
            // no allocation per block once as many are in flight as will be.
            thread_local std::shared_ptr<RelayBlockPool> relayBlocks = RelayBlockPool::create();
            relay_->feed(relayBlocks->make(block));
        }
        // Deliberate: a metadata block without a StreamTitle (only a
        // StreamUrl, say) counts as an empty one, so that a stream that never
        // names its tracks still falls back to date-stamped files.
        bool titled = cut->metadata == IcyDemuxer::Metadata::Block &&
                      VoObject::returnStringInData(cut->metadataBytes, "StreamTitle='", "';").has_value();
        if (titled) {
            checkname_ = -1;
            metaScratch_.assign(cut->metadataBytes.begin(), cut->metadataBytes.end());
            then = Then::Title;
        } else if (cut->metadata != IcyDemuxer::Metadata::None && checkname_ != -1 && ++checkname_ > 30) {
            useMeta_ = false;
            checkname_ = -1;
            then = Then::Untitled;
        }
    }
    // At the end only audio is taken: a title there would open a file that no
    // audio follows.
    if (atEnd) return true;
    // Title changes open files and may wait for the main thread: not under the lock.
    if (then == Then::Title) getName(metaScratch_);
    if (then == Then::Untitled) setNoNameFile();
    return true;
}

void Ripper::setFileNameFromPage(const std::string& title) {
    std::lock_guard lock(pageTitleMutex_);
    pageTitle_ = title;
}

void Ripper::setNoNameFileFromPage() {
    std::lock_guard lock(pageTitleMutex_);
    pageTitle_ = std::optional<std::string>();
}

void Ripper::setStationURL(const std::string& url) {
    std::lock_guard info(infoMutex_);
    streamHeader_.setStationURL(url);
}

void Ripper::takePageTitle() {
    std::optional<std::optional<std::string>> asked;
    {
        std::lock_guard lock(pageTitleMutex_);
        asked.swap(pageTitle_);
    }
    if (!asked) return;
    if (*asked)
        setFileName(**asked);
    else
        setNoNameFile();
}

void Ripper::dataLoaderTimer() {
    if (state_ < State::Recording) return;
    takePageTitle();
    while (state_ >= State::Recording && getData(blockScratch_, false)) {
        if (blockScratch_.size() > bufferSize_)
            throw NamedException("READ BUFFER OVERRUN", "READ BUFFER OVERRUN");
        sink_.raiseFailure();
        recBytes_ += static_cast<std::uint32_t>(blockScratch_.size());
        if (trackSplit_ && !useMeta_ && recBytes_ > static_cast<std::uint64_t>(trackSize_) * 1048576ULL) {
            setNoNameFile();
            recBytes_ = 0;
        }
        if (!relayOnly_) sink_.add(blockScratch_);
    }
}

}  // namespace quillon
