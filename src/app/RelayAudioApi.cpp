#include "app/RelayAudioApi.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "app/ActivityController.h"
#include "app/ApiServer.h"
#include "app/Controller.h"
#include "app/IcyMetadataStripper.h"
#include "engine/Ripper.h"
#include "engine/StreamHeader.h"
#include "net/TCPSocket.h"
#include "platform/NamedException.h"

namespace quillon {

namespace {

struct Refusal {
    int status = 0;
    std::string reason;
};

// The relay's port for a connection that streams; on the main loop.
std::uint16_t relayPortOf(Controller& c, std::uint64_t id, std::optional<Refusal>& refusal) {
    ActivityController& list = c.activity();
    for (std::size_t row = 0; row < list.numberOfRows(); ++row) {
        const Ripper& connection = list.connectionAt(row);
        if (connection.id() != id) continue;
        if (!connection.isStreaming())
            refusal = Refusal{409, connection.connName() + " is not streaming"};
        else if (connection.relayPort() == 0)
            refusal = Refusal{409, connection.connName() + " has no relay to listen to"};
        return connection.relayPort();
    }
    refusal = Refusal{404, "no connection " + std::to_string(id)};
    return 0;
}

ApiServer::Stream openRelay(Controller& c, const ApiRequest& req, const ApiServer::OnMain& onMain) {
    const std::uint64_t id = req.idParam(0);
    std::optional<Refusal> refusal;
    std::uint16_t port = 0;
    if (!onMain([&] { port = relayPortOf(c, id, refusal); })) throw ApiError(503, "the daemon is stopping");
    if (refusal) throw ApiError(refusal->status, refusal->reason);

    auto socket = std::make_shared<TCPSocket>();
    if (!socket->connectToHostName("127.0.0.1", port))
        throw ApiError(502, "the relay on port " + std::to_string(port) + " does not answer");
    Bytes header;
    try {
        socket->writeString("GET / HTTP/1.0\r\nIcy-MetaData: 1\r\nUser-Agent: Quillon web page\r\n\r\n",
                            RelayAudioApi::kHeaderSeconds);
        header = socket->readBoundedUpToString("\r\n\r\n", RelayAudioApi::kMaxHeaderBytes,
                                               RelayAudioApi::kHeaderSeconds);
    } catch (const NamedException& e) {
        throw ApiError(502, "the relay gave no stream: " + e.reason());
    }
    const std::string_view text(reinterpret_cast<const char*>(header.data()), header.size());
    const bool ok =
        text.starts_with("ICY 200") || text.starts_with("HTTP/1.0 200") || text.starts_with("HTTP/1.1 200");
    if (!ok || !text.ends_with("\r\n\r\n")) throw ApiError(502, "the relay gave no stream");
    std::size_t metaInt = 0;
    if (auto value = StreamHeader::lineValue(header, "icy-metaint:")) {
        auto checked = StreamHeader::checkedMetaInt(*value);
        if (!checked) throw ApiError(502, "the relay gave a bad meta interval: " + *value);
        metaInt = static_cast<std::size_t>(*checked);
    }
    std::string type =
        RelayAudioApi::browserAudioType(StreamHeader::lineValue(header, "content-type:").value_or(""));

    auto stripper = std::make_shared<IcyMetadataStripper>(metaInt);
    auto next = [socket, stripper](const ApiServer::Write& write) {
        std::uint8_t buffer[RelayAudioApi::kReadBytes];
        std::size_t got = 0;
        bool more = true;
        try {
            got = socket->readBytesToBuffer(buffer, static_cast<std::int64_t>(sizeof buffer),
                                            RelayAudioApi::kReadSeconds, &got);
            more = got > 0;  // a short read of 0 is the relay's end
        } catch (const NamedException& e) {
            // A quiet second is no end: the caller checks for a stop and calls again.
            more = e.name() == "TCP read timeout";
        }
        std::string audio;
        stripper->feed({buffer, got}, audio);
        if (!audio.empty() && !write(audio.data(), audio.size())) return false;
        return more;
    };
    return {std::move(type), std::move(next)};
}

}  // namespace

RelayAudioApi::RelayAudioApi(ApiServer& server, Controller& controller) {
    server.routeStream(R"(/api/activity/(\d+)/audio)",
                       [&controller](const ApiRequest& req, const ApiServer::OnMain& onMain) {
                           return openRelay(controller, req, onMain);
                       });
}

std::string RelayAudioApi::browserAudioType(std::string_view streamType) {
    std::string lower(streamType);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char ch) { return std::tolower(ch); });
    if (lower.find("aac") != std::string::npos) return "audio/aac";
    if (lower.find("ogg") != std::string::npos) return "audio/ogg";
    return "audio/mpeg";
}

}  // namespace quillon
