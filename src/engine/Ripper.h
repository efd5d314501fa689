#pragma once
// One live connection to one stream: connects (directly or through a proxy),
// sends the request, follows a redirection, reads the header, then reads the
// audio without end, cuts it into audio and metadata blocks, feeds the delay-line
// writer and the relay, and starts a new track file at every title change (or,
// without titles, at a size limit). Reconnects after failures when allowed.
//
// Thread contract: construction, start, close, userClose, invalidate,
// setRelayOnly, setCloseAfterThisTrack, setTimer, currentEndDate and destruction
// run on the main thread (userClose also runs on the connection thread, which
// then hands the rule's release to the main thread).
// One connection thread per start() runs the connect loop and the read loop;
// it hands the first file set-up and every status refresh to the main thread and
// waits. Queries may be called from any thread. `bufferLock_` guards the receive
// buffer and the relay pointer, `infoMutex_` the texts shown to the user, `socketMutex_`
// the socket pointer; the track sink locks itself.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "engine/ConnectionServices.h"
#include "engine/ConnectionSettings.h"
#include "engine/IcyDemuxer.h"
#include "engine/StreamHeader.h"
#include "engine/TrackHistory.h"
#include "engine/TrackSink.h"
#include "net/ChunkedDecoder.h"
#include "platform/ByteBuffer.h"
#include "platform/FileHandle.h"
#include "platform/MainLoop.h"

namespace quillon {

class Bookmark;
class ConnectionTimer;
class RipperOwner;
class TCPSocket;

class Ripper {
public:
    // The audio block size of a stream without metadata.
    static constexpr unsigned kDefaultBlockSize = 8192;

    // The state numbers are shared with the activity list and the relay (as
    // numbers); 5 and 6 count as streaming.
    enum class State : int {
        Finished = 0,
        Stopped = 1,
        Connecting = 2,
        WaitingToReconnect = 3,
        Redirected = 4,
        Recording = 5,
        Relaying = 6
    };

    // Why the connection last stopped streaming (or never started).
    enum class EndReason {
        None,         // still running, or never started
        UserStopped,  // the user, the owner, a rule or stop-after-this-track
        ServerEnded,  // the server ended the stream
        Lost,         // a read failed or timed out, or the stream lost sync
        Refused,      // no connection could be made or the server refused it
        DiskError,    // the track file could not be created or written
        Untrusted,    // the https server's certificate did not verify
    };

    // Makes the connection and starts it at once.
    Ripper(RipperOwner& owner, const Bookmark& bookmark, bool relayOnly, bool autoListen,
           ConnectionServices services = {});
    ~Ripper();
    Ripper(const Ripper&) = delete;
    Ripper& operator=(const Ripper&) = delete;

    // A number that names this connection for its whole life (the daemon's
    // API); unique within the process.
    std::uint64_t id() const { return id_; }

    void start();
    void close();
    void userClose();
    void invalidate();

    void setCloseAfterThisTrack(bool on);
    bool closeAfterThisTrack() const { return closeAfterThisTrack_; }
    // Flips the flag when titles really change; false (the caller beeps) otherwise.
    bool toggleCloseAfterThisTrack();
    bool trackSeparationOn() const;
    void setRelayOnly(bool on);

    // The schedule rule that started the connection (held weakly); every close
    // of the connection, and its destruction, releases the rule.
    void setTimer(const std::shared_ptr<ConnectionTimer>& timer);
    bool hasTimer() const;
    // When the connection's rule will stop it; nothing without a rule.
    std::optional<std::chrono::system_clock::time_point> currentEndDate() const;

    State ripperState() const { return state_; }
    bool isStreaming() const { return state_ >= State::Recording; }
    // Stopped with no connection thread left and no restart pending.
    bool stoppedForGood() const { return state_ <= State::Stopped && !threadActive_; }
    std::string status() const;
    std::string currentStatus() const;
    std::string currentTrack() const;
    std::string downloadPath() const;
    std::string filename() const;
    const Bookmark& bookmark() const { return *bookmark_; }
    StreamHeader streamHeader() const;
    std::string title() const;
    std::string connName() const;
    std::string description() const;
    std::string bitrateImage() const;
    unsigned bufferSize() const { return bufferSize_; }
    bool hasMeta() const { return hasMeta_; }
    bool relayOnly() const { return relayOnly_; }
    unsigned bitrate() const { return bitRate_; }
    std::uint16_t servePort() const { return servePort_; }
    void setServePort(std::uint16_t port) { servePort_ = port; }
    std::chrono::system_clock::time_point connectionDate() const;
    int clientsCount() const;
    // Where players reach the relay: its listening port, which differs from
    // servePort when the system chose it; 0 while the relay does not listen.
    std::uint16_t relayPort() const;
    // Has the owner redraw this connection's details soon, on the main thread;
    // returns at once (the relay calls it when players leave).
    void refreshStatus();
    int filledValue() const;
    unsigned errorCount() const { return errorCount_; }
    std::uint64_t bytesRead() const { return bytesRead_; }
    int trackCount() const { return trackNum_; }
    EndReason endReason() const { return endReason_; }
    // The https server's certificate was taken untrusted (the bookmark
    // allows it): the status says so while recording.
    bool untrustedCertificate() const { return untrusted_; }
    // The end reason in words, with the failure's own text where there is one
    // ("disk error: No space left on device"); empty while running.
    std::string endReasonText() const;

    // Titles from a title source's own thread (a station's web page): the
    // connection thread takes the latest at its next block and starts the
    // named track or the no-name file then, so that every file switch stays
    // on that one thread. Any thread.
    void setFileNameFromPage(const std::string& title);
    void setNoNameFileFromPage();
    // The station's web page, shown with the stream header. Any thread.
    void setStationURL(const std::string& url);

private:
    // Connection thread.
    void startRipping(std::shared_ptr<TCPSocket> socket);
    int connect(TCPSocket& socket);
    void dataLoaderTimer();
    void readStreaming(TCPSocket& socket);
    // Counts the first `count` bytes of the read scratch and hands them to the
    // demuxer, unchunked first when the server sends chunks. Raises
    // kStreamError when the chunk framing is broken.
    void keepReceived(std::size_t count);
    // The server sent the last chunk: the stream is over.
    bool chunksEnded() const;
    // Keeps whatever the socket has received and not yet given out.
    void keepArrived(TCPSocket& socket);
    void setState(State state);
    void setValues(unsigned bufferSize, bool meta, State state, unsigned bitrate);
    std::string logHeader() const;
    // Over https: the TLS handshake on the connected socket (raises kUntrusted
    // when the certificate does not verify and the bookmark does not allow it).
    void secureSocket(TCPSocket& socket);
    // Through a proxy, https asks for a tunnel first (raises when refused).
    void openTunnel(TCPSocket& socket);
    // "Recording : " or "Relay (no record) : ", marked when the certificate is untrusted.
    std::string streamingText(bool relaying) const;
    bool sleepUnlessOff(double seconds);
    std::shared_ptr<TCPSocket> replaceSocket();
    void runOnMain(const std::function<void()>& task);
    void shutdownSocket();
    void joinThread();
    void initAll();
    void startDataLoader();
    // Writes everything received and still held (the lookahead and the delay
    // line) to the track files; runs on the connection thread at every end.
    void finishRecording();
    void setEnd(EndReason reason, const std::string& text);
    // Tells the rule that the connection is closed and forgets it (main thread).
    void detachTimer();
    // Ends the connection for good with its end reason as its status text and
    // a log line (a disk error, a broken stream framing, an untrusted server).
    void showFailure();
    // Fills the next audio block from the demuxer; `atEnd` also takes what the
    // lookahead holds back.
    bool getData(Bytes& block, bool atEnd);
    // Starts the track a title source asked for last, if any (connection thread).
    void takePageTitle();

    // Track splitting and naming (RipperTracks.cpp).
    void getName(const Bytes& metadata);
    void setFileName(const std::string& title);
    void setNoNameFile();
    std::string genericTitle();
    void createFolderHierarchy();
    std::string parentFolderIfIncomplete(const std::string& path);
    // Opens the current track's file (or the null device) for the writer.
    // `mayResume`: the connection's own last file of that name is appended to
    // rather than a new one made (a resumed title, recording switched back on).
    void setupFile(bool write, bool mayResume);
    void finishCurrentFile(std::string& finishedPath);
    std::string incompleteFolderName() const;
    void setCurrentTrack(const std::string& track);
    void handToLibrary(const std::string& path);

    RipperOwner& owner_;
    std::weak_ptr<ConnectionTimer> timer_;  // main thread only
    std::atomic<unsigned> runNumber_{0};    // counts start()s
    std::shared_ptr<Bookmark> bookmark_;    // the connection's own copy
    ConnectionServices services_;
    // Read at every start; the connection thread is not running then.
    ConnectionSettings settings_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

    std::mutex locker_;
    mutable std::mutex socketMutex_;
    std::shared_ptr<TCPSocket> socket_;
    std::thread thread_;
    std::unique_ptr<InvokeGuard> guard_;
    std::mutex sleepMutex_;
    std::condition_variable sleepWake_;

    mutable std::mutex infoMutex_;
    StreamHeader streamHeader_;
    std::string status_;
    std::string currentTrack_;
    std::string downloadPath_;
    std::string filename_;
    std::chrono::system_clock::time_point connectionDate_{};

    TrackSink sink_;

    mutable std::mutex bufferLock_;
    IcyDemuxer demuxer_{kDefaultBlockSize, false};
    Bytes readScratch_;
    Bytes blockScratch_;
    Bytes firstBlock_;  // the first block of a connection, cut before its first file opened
    Bytes metaScratch_;
    // Connection thread only: set by each header that announces chunks.
    std::optional<ChunkedDecoder> chunks_;
    Bytes unchunked_;

    // Shared so that opening the player needs no lock while it runs.
    std::shared_ptr<ConnectionRelay> relay_;
    std::unique_ptr<TitleSource> titleSource_;
    // The title source's last request: a title, or the no-name file (none).
    std::mutex pageTitleMutex_;
    std::optional<std::optional<std::string>> pageTitle_;  // under pageTitleMutex_
    std::shared_ptr<TrackHistoryEntry> currentItem_;

    std::string lname_;
    std::optional<std::string> genericTitle_;  // under infoMutex_
    std::atomic<unsigned> bufferSize_{8192};
    std::atomic<unsigned> bitRate_{0};
    // From the header's "Content-Type:": the files' extension, their tag and
    // their cuts. Set by each header, before the first file of that run.
    std::atomic<AudioFormat> format_{AudioFormat::mp3};
    std::atomic<bool> hasMeta_{false};
    std::atomic<bool> useMeta_{true};
    std::atomic<State> state_{State::Stopped};
    std::atomic<bool> tryAgain_{false};
    std::atomic<bool> incomplete_{false};
    std::atomic<bool> subFolders_{false};
    std::atomic<bool> genericName_{false};
    std::atomic<int> trackNum_{0};
    std::atomic<bool> relayOnly_{false};
    std::atomic<bool> autolisten_{false};
    std::atomic<bool> trackSplit_{false};
    std::atomic<int> trackSize_{0};
    std::uint32_t recBytes_ = 0;
    std::atomic<bool> closeAfterThisTrack_{false};
    std::atomic<bool> off_{false};
    std::atomic<int> checkname_{0};
    std::atomic<unsigned> errorCount_{0};
    std::atomic<std::uint64_t> bytesRead_{0};
    std::atomic<std::uint16_t> servePort_{0};
    std::atomic<bool> threadActive_{false};
    const std::uint64_t id_;
    std::atomic<EndReason> endReason_{EndReason::None};
    std::string endText_;  // under infoMutex_
    std::atomic<bool> untrusted_{false};
    // No file opened yet since the last (re)connect: the first may resume.
    std::atomic<bool> firstFileOfRun_{true};
};

}  // namespace quillon
