// Track and folder names from any text, filtered or not, with any fallback:
// the last guard between a stream title and the file system.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "NameChecks.h"
#include "engine/TrackName.h"
#include "platform/TextUtil.h"

using namespace quillon;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    // The extensions the writer uses; they come from the code, not the stream.
    const char* extension = input.PickValueInArray({".mp3", ".aac", ".ogg", ""});
    std::string fallback = input.ConsumeRandomLengthString(400);
    std::string name = input.ConsumeRemainingBytesAsString();
    bool utf8In = isValidUtf8(name) && isValidUtf8(fallback);

    checkSafeName(fileNameForTrack(name, fallback, extension), extension, utf8In);
    checkSafeName(safeFolderName(name, fallback), "", utf8In);
    return 0;
}
