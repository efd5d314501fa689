#include "engine/Ripper.h"

#include <fmt/format.h>

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
constexpr std::size_t kLookahead = 16384;
constexpr std::size_t kHeaderMax = 16384;
constexpr int kMaxAttempts = 10;
constexpr unsigned kDefaultBlock = 8192;

Preferences& prefs() { return *Preferences::preferences(); }
}  // namespace

Ripper::Ripper(RipperOwner& owner, const Bookmark& bookmark, bool relayOnly, bool autoListen,
               ConnectionServices services)
    : owner_(owner), bookmark_(bookmark.copyAs<Bookmark>()), services_(std::move(services)) {
    relayOnly_ = relayOnly;
    autolisten_ = autoListen;
    start();
}

Ripper::~Ripper() {
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
    off_ = false;
    errorCount_ = 0;
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
    {
        std::lock_guard w(writerMutex_);
        fileBuffer_ = std::make_unique<QLNBuffer>(60, bookmark_->recOffset());
        fileOpen_ = false;
    }
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
        primaryBuffer_.clear();
    }
    tryAgain_ = true;
    trackNum_ = 0;
    servePort_ = owner_.firstFreeRelay();
    useMeta_ = !bookmark_->noSplit();
    titleSource_.reset();
}

void Ripper::close() {
    // The reader feeds the relay under the buffer lock, and the connection
    // thread and the main thread may both close; the relay's own threads are
    // joined outside the lock.
    std::unique_ptr<ConnectionRelay> gone;
    {
        std::lock_guard b(bufferLock_);
        gone.swap(relay_);
    }
    if (gone) gone->disposeOwner();
    gone.reset();
    shutdownSocket();
    tryAgain_ = false;
    servePort_ = 0;
    setState(Stopped);
}

void Ripper::userClose() {
    off_ = true;
    autolisten_ = false;
    {
        std::lock_guard info(infoMutex_);
        genericTitle_.reset();
    }
    sleepWake_.notify_all();
    close();
}

void Ripper::invalidate() {
    userClose();
    state_ = Finished;
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
        setupFile(!on);
    }
    if (state_ >= Recording) setState(on ? Relaying : Recording);
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
    if (state_ < Recording) return localized("idle", "Idle");
    if (relayOnly_) return localized("relaying", "Relay (no record) : ") + currentTrack();
    return localized("recording", "Recording : ") + currentTrack();
}

std::string Ripper::description() const {
    std::lock_guard lock(infoMutex_);
    return fmt::format("{}\r\nName : {}\r\nGenre : {}\r\nURL : {}\r\nBitrate : {}", streamHeader_.title(),
                       streamHeader_.name(), streamHeader_.genre(), streamHeader_.url(),
                       streamHeader_.bitRate());
}

std::string Ripper::bitrateImage() const {
    unsigned rate = bitRate_;
    if (rate == 0 || state_ < Recording) return "none.psd";
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

int Ripper::filledValue() const {
    std::lock_guard lock(writerMutex_);
    return fileBuffer_ ? fileBuffer_->filledValue() : 0;
}

// ---- status ----------------------------------------------------------------

void Ripper::setState(int state) {
    if (state_ == Finished) return;
    // Once the user has closed the connection, its thread, still unwinding,
    // must not show it as connecting or recording again.
    if (off_ && state != Stopped && state != Finished) return;
    state_ = state;
    std::string text;
    switch (state) {
        case Finished:
        case Stopped:
            text = localized("Stopped", "Stopped");
            break;
        case Connecting:
            text = localized("connect", "Connecting ...");
            break;
        case WaitingToReconnect:
            text = localized("reconnect", "Reconnecting ...");
            break;
        case Redirected:
            text = localized("Redirecting", "Server redirection ...");
            break;
        case Recording:
            text = localized("recording", "Recording : ") + currentTrack();
            break;
        case Relaying:
            text = localized("relaying", "Relay (no record) : ") + currentTrack();
            break;
    }
    {
        std::lock_guard lock(infoMutex_);
        status_ = text;
    }
    if (state != Finished) runOnMain([this] { owner_.refreshDetails(*this); });
}

void Ripper::runOnMain(const std::function<void()>& task) {
    MainLoop& loop = MainLoop::main();
    if (loop.isMainThread() || !guard_) {
        if (loop.isMainThread()) task();
        return;
    }
    loop.invoke(task, *guard_);
}

void Ripper::setValues(unsigned bufferSize, bool meta, int state, unsigned bitrate) {
    bufferSize_ = bufferSize == 0 ? kDefaultBlock : bufferSize;
    hasMeta_ = meta;
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

std::string Ripper::logHeader() const {
    StreamRequestParams params;
    params.host = bookmark_->host().value_or("");
    params.port = bookmark_->port().value_or("");
    params.path = bookmark_->path();
    params.authentication = bookmark_->authentication();
    params.proxyOn = prefs().getState("proxyOn");
    params.userAgent = prefs().getParam("UserAgent name");
    return quillon::logHeader(params);
}

// ---- connection thread -----------------------------------------------------

void Ripper::startRipping(std::shared_ptr<TCPSocket> socket) {
    const bool proxyOn = prefs().getState("proxyOn");
    const std::string proxyHost = prefs().getParam("proxyHost");
    const std::string proxyPort = prefs().getParam("proxyPort");
    int attempts = 0;
    try {
        while (state_ < Recording && tryAgain_ && attempts < kMaxAttempts && !off_) {
            try {
                setState(Connecting);
                std::string host = proxyOn ? proxyHost : bookmark_->host().value_or("");
                auto port = static_cast<std::uint16_t>(
                    intValue(proxyOn ? proxyPort : bookmark_->port().value_or("")));
                if (!socket->connectToHostName(host, port))
                    throw NamedException("Server Error", "Server refused connection");
                int result = connect(*socket);
                if (result == 1) {
                    socket = replaceSocket();
                    setState(Redirected);
                } else if (result != 0) {
                    throw NamedException("Server Error", "Server refused connection");
                }
                std::lock_guard info(infoMutex_);
                connectionDate_ = std::chrono::system_clock::now();
            } catch (const NamedException& e) {
                // One failed attempt; its reason is worth a line of its own.
                Log::line(e.reason());
                ++attempts;
                ++errorCount_;
                {
                    std::lock_guard info(infoMutex_);
                    connectionDate_ = std::chrono::system_clock::now();
                }
                if (prefs().getParam("reconnect") != "YES" || state_ == Finished) {
                    setState(Stopped);
                    break;
                }
                setState(WaitingToReconnect);
                if (!sleepUnlessOff(timing().connectRetryDelay)) break;
                socket = replaceSocket();
            }
        }
        if (state_ >= Recording) {
            readStreaming(*socket);
        } else {
            --errorCount_;
            userClose();
            throw NamedException("Cannot connect to server", "Cannot connect to server");
        }
    } catch (const NamedException& e) {
        ++errorCount_;
        Log::line(e.reason());
        close();
        setCurrentTrack("");
        if (off_) {
            userClose();
            return;
        }
        if (prefs().getParam("reconnect") == "YES" && sleepUnlessOff(timing().restartDelay)) {
            setState(WaitingToReconnect);
            std::weak_ptr<bool> alive = alive_;
            MainLoop::main().post([this, alive] {
                if (auto a = alive.lock(); a && *a && !off_) start();
            });
        }
    }
}

void Ripper::readStreaming(TCPSocket& socket) {
    {
        std::lock_guard w(writerMutex_);
        fileBuffer_->initValues(bitRate_);
    }
    {
        std::lock_guard b(bufferLock_);
        if (relay_) relay_->startFeeding();
    }
    if (!useMeta_) {
        if (prefs().getState("split")) {
            trackSplit_ = true;
            trackSize_ = intValue(prefs().getParam("chunkSize"));
            trackNum_ = 1;
            runOnMain([this] { setNoNameFile(); });
        } else {
            runOnMain([this] { setFileName(""); });
        }
    }
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().post([this, alive] {
        if (auto a = alive.lock(); a && *a) startDataLoader();
    });
    readScratch_.resize(bufferSize_);
    while (state_ >= Recording) {
        std::size_t want = bufferSize_;
        if (readScratch_.size() < want) readScratch_.resize(want);
        std::size_t got = socket.readBytesToBuffer(readScratch_.data(), static_cast<std::int64_t>(want),
                                                   timing().streamReadTimeout);
        if (got != want) throw NamedException("Stream lost sync", "Stream lost sync");
        bytesRead_ += got;
        {
            std::lock_guard lock(bufferLock_);
            primaryBuffer_.append(std::span<const std::uint8_t>(readScratch_.data(), got));
        }
        dataLoaderTimer();
    }
}

void Ripper::startDataLoader() {
    if (!autolisten_) return;
    std::weak_ptr<bool> alive = alive_;
    MainLoop::main().addTimer(timing().autoListenDelay, [this, alive] {
        auto a = alive.lock();
        if (!a || !*a) return;
        // The connection's thread may drop the relay at any time; it does so
        // under the buffer lock. Opening the player does not wait for it.
        std::lock_guard lock(bufferLock_);
        if (relay_) relay_->listenOnce();
    });
}

int Ripper::connect(TCPSocket& socket) {
    setValues(kDefaultBlock, false, Connecting, 0);
    std::string request = logHeader();
    socket.writeString(request, timing().streamReadTimeout);
    static constexpr std::uint8_t kEnd[] = {'\r', '\n', '\r', '\n'};
    Bytes header = socket.readDataUpToData(kEnd, kHeaderMax, timing().streamReadTimeout);
    bytesRead_ += header.size();
    if (prefs().getState("split")) {
        trackSplit_ = true;
        trackSize_ = intValue(prefs().getParam("chunkSize"));
    }
    if (header.empty()) {
        useMeta_ = false;
        setState(Recording);
        return 0;
    }
    if (auto location = VoObject::returnStringInData(header, "Location: ", "\r\n")) {
        auto url = Url::parse(*location);
        if (!url) return -1;
        bookmark_->setHost(url->host);
        if (url->port) bookmark_->setPort(std::to_string(*url->port));
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
    if (parsed.error()) {
        Log::line(parsed.errorType());
        return -1;
    }
    titleSource_ = services_.makeTitleSource ? services_.makeTitleSource(*this, logHeader()) : nullptr;
    setValues(static_cast<unsigned>(parsed.metaInt()), parsed.hasMeta(), Recording,
              static_cast<unsigned>(parsed.bitRate()));

    std::size_t want = bufferSize_ + kLookahead;
    readScratch_.resize(want);
    std::size_t got = socket.readBytesToBuffer(readScratch_.data(), static_cast<std::int64_t>(want),
                                               timing().streamReadTimeout);
    bytesRead_ += got;
    {
        std::lock_guard lock(bufferLock_);
        primaryBuffer_.append(std::span<const std::uint8_t>(readScratch_.data(), got));
    }
    if (!getData(blockScratch_)) {
        setState(Connecting);
        return -1;
    }
    if (!hasMeta_ && !(titleSource_ && titleSource_->enabled())) {
        // Size-split recordings open their first chunk, numbered 001, once
        // streaming starts; opening one here would leave an empty chunk 000.
        if (!trackSplit_) runOnMain([this] { setFileName(""); });
        useMeta_ = false;
    }
    return 0;
}

bool Ripper::getData(Bytes& block) {
    enum class Then { Nothing, Title, Untitled } then = Then::Nothing;
    {
        std::lock_guard lock(bufferLock_);
        const std::size_t size = bufferSize_;
        // The lookahead guarantees that a whole metadata block follows the audio.
        if (primaryBuffer_.size() < size + kLookahead) return false;
        primaryBuffer_.getBytesInto(size, block);
        if (relay_) {
            // The relay's blocks come from a pool of this connection thread:
            // no allocation per block once as many are in flight as will be.
            thread_local std::shared_ptr<RelayBlockPool> relayBlocks = RelayBlockPool::create();
            relay_->feed(relayBlocks->make(block));
        }
        if (hasMeta_) {
            auto length = static_cast<std::int8_t>(primaryBuffer_[0]);
            primaryBuffer_.dropFront(1);
            if (length > 0) {
                checkname_ = -1;
                primaryBuffer_.getBytesInto(static_cast<std::size_t>(length) * 16, metaScratch_);
                then = Then::Title;
            } else if (length < 0) {
                throw NamedException("Error getting fileName", "Error getting name : stream sync failed");
            } else if (checkname_ != -1 && ++checkname_ > 30) {
                useMeta_ = false;
                checkname_ = -1;
                then = Then::Untitled;
            }
        }
    }
    // Title changes open files and may wait for the main thread: not under the lock.
    if (then == Then::Title) getName(metaScratch_);
    if (then == Then::Untitled) setNoNameFile();
    return true;
}

void Ripper::dataLoaderTimer() {
    if (state_ < Recording) return;
    while (state_ >= Recording && getData(blockScratch_)) {
        if (blockScratch_.size() > bufferSize_)
            throw NamedException("READ BUFFER OVERRUN", "READ BUFFER OVERRUN");
        recBytes_ += static_cast<std::uint32_t>(blockScratch_.size());
        if (trackSplit_ && !useMeta_ && recBytes_ > static_cast<std::uint64_t>(trackSize_) * 1048576ULL) {
            setNoNameFile();
            recBytes_ = 0;
        }
        std::lock_guard w(writerMutex_);
        if (fileOpen_ && !relayOnly_) fileBuffer_->addData(blockScratch_);
    }
}

}  // namespace quillon
