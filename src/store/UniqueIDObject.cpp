#include "store/UniqueIDObject.h"

#include <cstdlib>

namespace quillon {

namespace {

std::function<int()>& randomSource() {
    static std::function<int()> source;
    return source;
}

}  // namespace

PlistValue::Dictionary& UniqueIDObject::uniqueIDObjectsDatabase() {
    static PlistValue::Dictionary database;
    return database;
}

void UniqueIDObject::setRandomSource(std::function<int()> source) { randomSource() = std::move(source); }

int UniqueIDObject::nextRandom() {
    const auto& source = randomSource();
    // The draw is reduced modulo 32768 by the caller; keep it non-negative.
    int r = source ? source() : std::rand();
    return r < 0 ? -(r + 1) : r;
}

}  // namespace quillon
