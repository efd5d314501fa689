#pragma once
// The promises every file or folder name made from a stream title keeps,
// shared by the title and track-name targets.
#include <string_view>

#include "FuzzCheck.h"
#include "engine/TrackName.h"
#include "platform/TextUtil.h"

namespace quillon {

// `name` is a whole file or folder name whose stem is name minus `extension`;
// `utf8In` tells whether every text it was made from was valid UTF-8.
inline void checkSafeName(std::string_view name, std::string_view extension, bool utf8In) {
    FUZZ_CHECK(!name.empty());
    FUZZ_CHECK(name.size() <= kMaxFileNameBytes);
    FUZZ_CHECK(name.find('/') == std::string_view::npos);
    FUZZ_CHECK(name.find('\0') == std::string_view::npos);
    FUZZ_CHECK(name != "." && name != "..");
    FUZZ_CHECK(endsWith(name, extension));
    std::string_view stem = name.substr(0, name.size() - extension.size());
    FUZZ_CHECK(stem.find_first_not_of(" .") != std::string_view::npos);
    FUZZ_CHECK(!utf8In || isValidUtf8(name));
}

}  // namespace quillon
