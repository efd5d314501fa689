// `make install` as a packager runs it: into a staging root, from the build
// folder these tests were built in (so it builds nothing new).
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "cli/CliTest.h"

namespace quillon::test {
namespace {

// The program's path when it is on PATH, else "".
std::string onPath(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string candidate = folder + "/" + name;
        if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
    return text;
}

TEST_F(CliTest, MakeInstallPutsTheProgramItsUnitAndItsDesktopEntryInPlace) {
    const std::string stage = file("stage");
    const std::string build = std::filesystem::path(QUILLON_BINARY).parent_path().string();
    auto make = runProcess({"make", "-s", "-C", QUILLON_SOURCE_DIR, "install", "BUILD=" + build, "JOBS=2",
                            "DESTDIR=" + stage, "PREFIX=/usr"});
    ASSERT_EQ(make.status, 0) << make.out << make.err;

    const std::string binary = stage + "/usr/bin/quillon";
    const std::string unit = stage + "/usr/lib/systemd/user/quillon.service";
    const std::string desktop = stage + "/usr/share/applications/quillon.desktop";
    struct Expected {
        std::string path;
        mode_t mode;
    };
    for (const Expected& e : {Expected{binary, 0755}, Expected{unit, 0644}, Expected{desktop, 0644}}) {
        SCOPED_TRACE(e.path);
        struct stat st {};
        ASSERT_EQ(::stat(e.path.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, e.mode);
    }
    EXPECT_EQ(std::filesystem::file_size(binary), std::filesystem::file_size(QUILLON_BINARY));
    EXPECT_EQ(runProcess({binary, "--help"}).status, 0);

    // Both name the installed program by its path under PREFIX, not DESTDIR.
    const std::string unitText = readText(unit), desktopText = readText(desktop);
    EXPECT_NE(unitText.find("\nExecStart=/usr/bin/quillon serve\n"), std::string::npos) << unitText;
    EXPECT_NE(unitText.find("\nRestart=on-failure\n"), std::string::npos) << unitText;
    EXPECT_NE(unitText.find("\nWantedBy=default.target\n"), std::string::npos) << unitText;
    EXPECT_NE(desktopText.find("\nExec=/usr/bin/quillon ui\n"), std::string::npos) << desktopText;
    EXPECT_EQ(unitText.find('@'), std::string::npos);
    EXPECT_EQ(desktopText.find('@'), std::string::npos);

    if (std::string analyze = onPath("systemd-analyze"); !analyze.empty()) {
        // The checker also wants the command to exist: let it point at the staged one.
        // It exits 0 past a line it ignores, so any complaint at all fails.
        const std::string staged = file("quillon.service");
        writeText(staged, replaced(unitText, "=/usr/bin/quillon", "=" + binary));
        auto verify = runProcess({analyze, "verify", staged});
        EXPECT_EQ(verify.status, 0);
        EXPECT_EQ(verify.out + verify.err, "");
    }
    if (std::string validate = onPath("desktop-file-validate"); !validate.empty()) {
        auto verify = runProcess({validate, desktop});
        EXPECT_EQ(verify.status, 0) << verify.out << verify.err;
    }
}

}  // namespace
}  // namespace quillon::test
