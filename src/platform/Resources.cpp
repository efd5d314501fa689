#include "platform/Resources.h"

std::string_view quillon_embedded_resource(std::string_view name);

namespace quillon {

std::optional<std::string_view> resource(std::string_view name) {
    std::string_view bytes = quillon_embedded_resource(name);
    if (bytes.data() == nullptr) return std::nullopt;
    return bytes;
}

}  // namespace quillon
