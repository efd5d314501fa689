#pragma once
// The localisation table: user-visible texts looked up by key, each lookup with
// its built-in default. Reads the English table from the embedded resources.
// Thread-safe (the table is built once, then only read).
#include <map>
#include <string>
#include <string_view>

namespace quillon {

// The table's text for the key, or the default when the table lacks it.
std::string localized(std::string_view key, std::string_view defaultText);

// Parses the strings-file form: lines of "key" = "value"; with /* */ comments
// and backslash escapes (\" \\ \n). Malformed lines are skipped.
std::map<std::string, std::string, std::less<>> parseStringsFile(std::string_view text);

}  // namespace quillon
