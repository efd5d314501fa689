#include "platform/QLNObject.h"

namespace quillon {

std::optional<std::string> QLNObject::returnStringInData(std::span<const std::uint8_t> data,
                                                         std::string_view start, std::string_view end) const {
    return VoObject::returnStringInData(data, start, end);
}

std::optional<Bytes> QLNObject::returnDataInDataBefore(std::span<const std::uint8_t> data,
                                                       std::string_view key) const {
    return VoObject::returnDataInDataBefore(data, key);
}

std::optional<Bytes> QLNObject::returnDataInDataAfter(std::span<const std::uint8_t> data,
                                                      std::string_view key) const {
    return VoObject::returnDataInDataAfter(data, key);
}

CharFilter QLNObject::filterFromChars(std::string_view pairs) const {
    return VoObject::filterFromChars(pairs);
}

std::string QLNObject::filterString(std::string_view text, const CharFilter& filter) const {
    return VoObject::filterString(text, filter);
}

const CharFilter& QLNObject::standartFilter() const {
    static const CharFilter filter = VoObject::filterFromChars("/_: | ._");
    return filter;
}

std::string QLNObject::alphabeticString(std::string_view text) const {
    return VoObject::alphabeticString(text);
}

}  // namespace quillon
