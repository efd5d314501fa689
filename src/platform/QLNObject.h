#pragma once
// The slicing and filter operations of VoObject as members of an instance, for
// code that holds a helper object rather than calling class operations. It has
// its own standard filter, which leaves the backslash alone. Stateless: any
// thread may use any instance.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/VoObject.h"

namespace quillon {

class QLNObject {
public:
    std::optional<std::string> returnStringInData(std::span<const std::uint8_t> data, std::string_view start,
                                                  std::string_view end) const;
    std::optional<Bytes> returnDataInDataBefore(std::span<const std::uint8_t> data,
                                                std::string_view key) const;
    std::optional<Bytes> returnDataInDataAfter(std::span<const std::uint8_t> data,
                                               std::string_view key) const;
    CharFilter filterFromChars(std::string_view pairs) const;
    std::string filterString(std::string_view text, const CharFilter& filter) const;
    // "/" and "." become "_", ":" and "|" become blanks; backslashes stay.
    const CharFilter& standartFilter() const;
    std::string alphabeticString(std::string_view text) const;
};

}  // namespace quillon
