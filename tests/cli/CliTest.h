#pragma once
// The fixture of the command-line tests: each test runs the `quillon` binary as
// a child process with a fresh home folder of its own, and may serve streams to
// it from an in-process test station.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "station/Station.h"
#include "support/Files.h"
#include "support/Process.h"

namespace quillon::test {

class CliTest : public ::testing::Test {
protected:
    void SetUp() override { home_ = testFolder("cli"); }

    // `typed`: answers typed on a terminal; without them there is none to ask on.
    ProcessResult quillon(std::vector<std::string> args,
                          std::optional<std::string> typed = std::nullopt) const {
        args.insert(args.begin(), QUILLON_BINARY);
        return runProcess(args,
                          {.environment = {{"QUILLON_HOME", home_}}, .terminalInput = std::move(typed)});
    }
    std::string file(const std::string& relative) const { return home_ + "/" + relative; }
    std::string bookmarkFile(const std::string& name) const {
        return file("Documents/QLN Bookmarks/" + name + ".qlnbk");
    }

    // A counter station at 16000 bytes/s, a title every second, changed by `change`.
    template <typename Change = void (*)(StationOptions&)>
    static std::unique_ptr<Station> station(Change change = [](StationOptions&) {}) {
        StationOptions o;
        o.payload = StationPayload::counter;
        o.metaint = 8000;
        o.titleEvery = 16000;
        change(o);
        auto s = std::make_unique<Station>(o);
        s->start();
        return s;
    }

    static std::vector<std::string> lines(const std::string& text) {
        std::vector<std::string> out;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) out.push_back(line);
        return out;
    }
    static std::size_t count(const std::string& text, const std::string& what) {
        std::size_t n = 0;
        for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
        return n;
    }

    std::string home_;
};

}  // namespace quillon::test
