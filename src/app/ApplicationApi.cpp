#include "app/ApplicationApi.h"

#include <unistd.h>

#include <regex>

#include "app/ApiServer.h"
#include "app/Controller.h"
#include "app/LoginLinks.h"
#include "platform/DefaultsStore.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

struct ModuleName {
    const char* name;
    StorageFolder::Module module;
};

constexpr ModuleName kModules[] = {{"activity", StorageFolder::Module::activity},
                                   {"bookmarks", StorageFolder::Module::bookmarks},
                                   {"history", StorageFolder::Module::history},
                                   {"tuner", StorageFolder::Module::tuner},
                                   {"schedules", StorageFolder::Module::schedules}};

nlohmann::json folderJson(const char* name, const StorageFolder& f) {
    std::string path = f.storageFolder();
    return {{"module", name},
            {"key", f.storageFolderKey()},
            {"path", path},
            {"usable", StorageFolder::isUsableFolder(path)},
            {"userMayChoose", f.userMayChoose()}};
}

}  // namespace

void addApplicationRoutes(ApiServer& server, Controller& c, LoginLinks& logins) {
    server.route("GET", "/api/status", [&c, &server](const ApiRequest&) {
        return ApiReply{200,
                        {{"version", Preferences::kVersion},
                         {"pid", ::getpid()},
                         {"webPort", server.port()},
                         {"connections", c.activity().numberOfRows()}}};
    });
    server.route("GET", "/api/window", [&c](const ApiRequest&) {
        return ApiReply{200, {{"MainWinPos", c.mainWindowFrame()}}};
    });
    server.route("PUT", "/api/window", [&c](const ApiRequest& req) {
        req.allowOnly({"MainWinPos"});
        std::string frame = req.requiredString("MainWinPos");
        // The stored form of a window frame: "{{x, y}, {w, h}}".
        static const std::regex form(R"(\{\{-?\d+(\.\d+)?, -?\d+(\.\d+)?\}, \{\d+(\.\d+)?, \d+(\.\d+)?\}\})");
        if (!std::regex_match(frame, form)) throw ApiError(400, "MainWinPos must look like {{x, y}, {w, h}}");
        c.setMainWindowFrame(frame);
        return ApiReply{};
    });
    server.route("GET", "/api/questions", [&c](const ApiRequest&) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& q : c.questions().pending()) list.push_back(QuestionBoard::toJson(q));
        return ApiReply{200, {{"questions", list}}};
    });
    server.route("POST", R"(/api/questions/(\d+))", [&c](const ApiRequest& req) {
        req.allowOnly({"answer"});
        std::string answer = req.requiredString("answer");
        if (auto refusal = c.questions().answer(req.idParam(0), answer))
            throw ApiError(*refusal == "no such question" ? 404 : 400, *refusal);
        return ApiReply{};
    });
    server.route("GET", "/api/storage-folders", [](const ApiRequest&) {
        nlohmann::json list = nlohmann::json::array();
        for (const auto& m : kModules) list.push_back(folderJson(m.name, StorageFolder::forModule(m.module)));
        return ApiReply{200, {{"folders", list}}};
    });
    server.route("PUT", R"(/api/storage-folders/(\w+))", [](const ApiRequest& req) {
        req.allowOnly({"path"});
        std::string path = req.requiredString("path");
        for (const auto& m : kModules) {
            if (req.param(0) != m.name) continue;
            StorageFolder f = StorageFolder::forModule(m.module);
            if (!f.userMayChoose())
                throw ApiError(403, std::string("the ") + m.name + " folder cannot be changed");
            if (!StorageFolder::isUsableFolder(path)) throw ApiError(400, "not an existing folder: " + path);
            f.setStorageFolder(path);
            DefaultsStore::standard().synchronize();
            return ApiReply{200, folderJson(m.name, f)};
        }
        throw ApiError(404, "no such module: " + req.param(0));
    });
    server.route("POST", "/api/login-links", [&server, &logins](const ApiRequest&) {
        std::string url =
            "http://127.0.0.1:" + std::to_string(server.port()) + "/login?code=" + logins.create();
        return ApiReply{201, {{"url", url}}};
    });
}

}  // namespace quillon
