#pragma once
// Small text helpers shared by every subsystem. Pure functions.
#include <cstdint>
#include <string>
#include <string_view>

namespace quillon {

// The leading integer of a text: blanks skipped, optional sign, then digits;
// 0 when there are none. Saturates at the 32-bit limits.
std::int32_t intValue(std::string_view text);
// The same reading as a 64-bit value.
std::int64_t longValue(std::string_view text);
// The leading decimal number (integer or real) of a text; 0 when none.
double doubleValue(std::string_view text);

// Fills the text on the left with `fill` up to `length` characters.
std::string padLeft(std::string_view text, std::size_t length, char fill = '0');
std::string toLowerAscii(std::string_view text);
bool startsWith(std::string_view text, std::string_view prefix);
bool endsWith(std::string_view text, std::string_view suffix);
// The text without the blanks and tabs around it.
std::string_view trimmedBlanks(std::string_view text);

bool isValidUtf8(std::string_view text);
// Each byte read as a Latin-1 character, written as UTF-8.
std::string latin1ToUtf8(std::string_view text);
// UTF-8 as it stands when valid, otherwise the bytes read as Latin-1.
std::string textFromWire(std::string_view bytes);
// The longest prefix of at most maxBytes bytes that ends on a character boundary.
std::string_view utf8Prefix(std::string_view text, std::size_t maxBytes);

// Decodes one UTF-8 character at `pos` (advanced past it); invalid bytes decode
// as themselves (Latin-1 reading).
char32_t decodeUtf8(std::string_view text, std::size_t& pos);
void appendUtf8(std::string& out, char32_t c);
std::u32string toUtf32(std::string_view text);
std::string toUtf8(std::u32string_view text);

std::string base64Encode(std::string_view bytes);

// The text made safe to print on a terminal: C0 controls (tabs and line ends
// included), DEL, C1 controls (U+0080-U+009F) and bytes that are no valid UTF-8
// each become U+FFFD, so that a stored or received title can neither move the
// cursor, retitle the window nor clear the screen. Everything else is kept.
std::string printable(std::string_view text);

}  // namespace quillon
