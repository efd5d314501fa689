#pragma once
// A stand-in Radio Browser mirror on 127.0.0.1 (cpp-httplib): the answers of
// /json/tags and /json/stations/bytagexact/TAG as the test sets them, in the
// service's documented shapes, and /json/url/UUID counting clicks. It records
// each request's path and User-Agent.
//
// Thread contract: the setters and readers from the test's thread; handlers
// on the server's threads; one mutex guards the answers and the records.
#include <httplib.h>

#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

namespace quillon::test {

class RadioBrowserPeer {
public:
    struct Station {
        std::string name, url, codec, uuid, tags;
        int bitrate = 128;
    };

    RadioBrowserPeer() {
        server_.Get("/json/tags",
                    [this](const httplib::Request& req, httplib::Response& res) { answer(req, res, tags_); });
        server_.Get(R"(/json/stations/bytagexact/(.+))",
                    [this](const httplib::Request& req, httplib::Response& res) {
                        std::string body;
                        {
                            std::lock_guard lock(mutex_);
                            auto it = stations_.find(req.matches[1].str());
                            if (it == stations_.end()) {
                                res.status = 500;  // a tag the test did not expect
                                record(req);
                                return;
                            }
                            body = it->second;
                        }
                        answer(req, res, body);
                    });
        server_.Get(R"(/json/url/(.+))", [this](const httplib::Request& req, httplib::Response& res) {
            {
                std::lock_guard lock(mutex_);
                ++clicks_[req.matches[1].str()];
            }
            answer(req, res,
                   R"({"ok":true,"message":"retrieved station url","stationuuid":")" + req.matches[1].str() +
                       R"(","name":"x","url":"http://127.0.0.1/"})");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        // Bound, so a connection waits in the backlog until the loop accepts it.
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~RadioBrowserPeer() {
        server_.stop();
        thread_.join();
    }
    RadioBrowserPeer(const RadioBrowserPeer&) = delete;
    RadioBrowserPeer& operator=(const RadioBrowserPeer&) = delete;

    std::string base() const { return "http://127.0.0.1:" + std::to_string(port_); }

    // An answer of "" makes that call fail with status 500.
    void setTags(std::string body) {
        std::lock_guard lock(mutex_);
        tags_ = std::move(body);
    }
    void setStations(const std::string& tag, std::string body) {
        std::lock_guard lock(mutex_);
        stations_[tag] = std::move(body);
    }

    static std::string tagsJson(const std::vector<std::pair<std::string, int>>& tags) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& [name, count] : tags) list.push_back({{"name", name}, {"stationcount", count}});
        return list.dump();
    }
    static std::string stationsJson(const std::vector<Station>& stations) {
        nlohmann::json list = nlohmann::json::array();
        for (const Station& s : stations)
            list.push_back({{"changeuuid", "c-" + s.uuid},
                            {"stationuuid", s.uuid},
                            {"name", s.name},
                            {"url", s.url},
                            {"url_resolved", s.url},
                            {"homepage", "https://example.org/"},
                            {"favicon", ""},
                            {"tags", s.tags},
                            {"country", "Nowhere"},
                            {"codec", s.codec},
                            {"bitrate", s.bitrate},
                            {"hls", 0},
                            {"lastcheckok", 1},
                            {"clickcount", 7}});
        return list.dump();
    }

    int clicks(const std::string& uuid) const {
        std::lock_guard lock(mutex_);
        auto it = clicks_.find(uuid);
        return it == clicks_.end() ? 0 : it->second;
    }
    std::vector<std::string> paths() const {
        std::lock_guard lock(mutex_);
        return paths_;
    }
    std::vector<std::string> userAgents() const {
        std::lock_guard lock(mutex_);
        return agents_;
    }

private:
    void record(const httplib::Request& req) {
        paths_.push_back(req.target);
        agents_.push_back(req.get_header_value("User-Agent"));
    }
    void answer(const httplib::Request& req, httplib::Response& res, const std::string& fixed) {
        std::lock_guard lock(mutex_);
        record(req);
        if (fixed.empty()) {
            res.status = 500;
            return;
        }
        res.set_content(fixed, "application/json");
    }

    mutable std::mutex mutex_;
    std::string tags_;
    std::map<std::string, std::string> stations_;
    std::map<std::string, int> clicks_;
    std::vector<std::string> paths_, agents_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

}  // namespace quillon::test
