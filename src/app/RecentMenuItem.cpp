#include "app/RecentMenuItem.h"

namespace quillon {

PlistValue RecentMenuItem::archived() const { return PlistValue(PlistValue::Array{title_, recentFilePath_}); }

std::optional<RecentMenuItem> RecentMenuItem::fromArchive(const PlistValue& value) {
    const auto* parts = value.asArray();
    if (!parts || parts->size() < 2) return std::nullopt;
    const auto* title = (*parts)[0].asString();
    const auto* path = (*parts)[1].asString();
    if (!title || !path) return std::nullopt;
    return RecentMenuItem(*title, *path);
}

}  // namespace quillon
