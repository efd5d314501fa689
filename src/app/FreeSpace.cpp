#include "app/FreeSpace.h"

#include <limits>

#include "app/StorageFolder.h"
#include "platform/DiskSpace.h"
#include "platform/Log.h"

namespace quillon {

FreeSpace::FreeSpace(Query query, FolderSource folder) : folder_(std::move(folder)) {
    setQuery(std::move(query));
    if (!folder_) folder_ = [] { return StorageFolder::records().storageFolder(); };
}

void FreeSpace::setQuery(Query query) {
    query_ = query ? std::move(query) : Query([](const std::string& path) { return freeBytes(path); });
}

bool FreeSpace::isEnough(std::uint64_t freeBytes) {
    if (freeBytes > std::numeric_limits<std::uint32_t>::max()) return true;
    if (freeBytes < kMinimumFreeBytes)
        Log::info("Free space on destination volume {}", byteSizeText(freeBytes));
    return freeBytes > kMinimumFreeBytes;
}

bool FreeSpace::hasEnoughFreeSpace() const {
    auto free = query_(folder_());
    if (!free) return true;
    return isEnough(*free);
}

}  // namespace quillon
