#pragma once
// Output checks of commands that print stored or received titles.
#include <string_view>

#include "platform/TextUtil.h"

namespace quillon::test {

// Whether a terminal would take part of the output for a command: any C0
// control but the tab and line end of the layout, DEL, or C1 (as UTF-8 or as a
// bare byte, which decodes as itself).
inline bool holdsControlCharacter(std::string_view out) {
    for (std::size_t i = 0; i < out.size();) {
        char32_t c = decodeUtf8(out, i);
        if ((c < 0x20 && c != '\t' && c != '\n') || (c >= 0x7F && c <= 0x9F)) return true;
    }
    return false;
}

// A title that sets the window title, clears the screen and starts a CSI (U+009B).
constexpr std::string_view kHostileTitle = "\x1b]0;owned\x07[Evil Title]\x1b[2J\xc2\x9b[31m";

}  // namespace quillon::test
