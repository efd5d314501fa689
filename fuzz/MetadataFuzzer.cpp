// A metadata block from the stream, the way a recording connection turns it
// into names: the title between "StreamTitle='" and "';", the letters-only
// cleaning, the standard filter, then the track's file name and its artist
// folder.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "FuzzCheck.h"
#include "NameChecks.h"
#include "engine/TrackName.h"
#include "platform/TextUtil.h"
#include "platform/VoObject.h"

using namespace quillon;

namespace {

void checkNames(const std::string& title) {
    std::string filtered = VoObject::filterString(title, VoObject::standartFilter());
    FUZZ_CHECK(isValidUtf8(filtered));
    FUZZ_CHECK(toUtf32(filtered).size() == toUtf32(title).size());
    FUZZ_CHECK(filtered.find_first_of("/\\:|.") == std::string::npos);

    checkSafeName(fileNameForTrack(filtered, "Radio-(1-2-2026@18 03)"), ".mp3", true);
    // The artist folder: the text ahead of the separator.
    std::size_t at = filtered.find(" - ");
    if (at != std::string::npos && at > 0)
        checkSafeName(safeFolderName(filtered.substr(0, at), "Unknown Artist"), "", true);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::span<const std::uint8_t> block(data, size);
    auto title = VoObject::returnStringInData(block, "StreamTitle='", "';");
    if (!title) return 0;
    FUZZ_CHECK(isValidUtf8(*title));
    checkNames(*title);

    std::string clean = VoObject::alphabeticString(*title);
    FUZZ_CHECK(isValidUtf8(clean));
    FUZZ_CHECK(clean.size() <= title->size());
    FUZZ_CHECK(clean.find_first_of("/\\:|.'\0", 0, 7) == std::string::npos);
    checkNames(clean);
    return 0;
}
