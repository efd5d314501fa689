#pragma once
// Files of resources/ embedded into the binary at build time, by file name.
#include <optional>
#include <string_view>

namespace quillon {

// The bytes of the named resource ("extag.txt", "Localizable.strings"), or
// nothing when no such resource was built in.
std::optional<std::string_view> resource(std::string_view name);

}  // namespace quillon
