#pragma once
// An object with a small numeric identifier that is unique within one list
// (bookmarks, rules, history items). Lists are vectors of shared pointers (or
// anything whose elements answer ->uniqueId()).
//
// Thread contract: not locked. The random source is process-wide; set it only
// while no other thread is choosing identifiers (tests).
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/PlistValue.h"

namespace quillon {

class UniqueIDObject {
public:
    UniqueIDObject() = default;
    virtual ~UniqueIDObject() = default;

    virtual std::uint32_t uniqueId() const { return uniqueId_; }
    virtual void setUniqueId(std::uint32_t id) { uniqueId_ = id; }

    // uniqueId() as a number value.
    PlistValue uniqueIdNum() const { return PlistValue::integer(uniqueId()); }
    // The plain field, not the (possibly overridden) accessor, as a number value.
    PlistValue key() const { return PlistValue::integer(uniqueId_); }

    // The class-wide dictionary of identified objects; created empty on first
    // use. Nothing stores into it.
    static PlistValue::Dictionary& uniqueIDObjectsDatabase();

    // The pseudo-random source of unusedUniqueIdfromArray (default std::rand).
    // Tests inject a fixed sequence; an empty function restores the default.
    static void setRandomSource(std::function<int()> source);
    static int nextRandom();

    // The index of the first object (from 0 upward) whose uniqueId is `id`,
    // or -1.
    template <typename List>
    static int objectIndexForId(std::uint32_t id, const List& array) {
        int index = 0;
        for (const auto& item : array) {
            if (item && item->uniqueId() == id) return index;
            ++index;
        }
        return -1;
    }

    template <typename T>
    static std::shared_ptr<T> objectForId(std::uint32_t id, const std::vector<std::shared_ptr<T>>& array) {
        int index = objectIndexForId(id, array);
        return index < 0 ? nullptr : array[static_cast<std::size_t>(index)];
    }

    // An identifier that no object of the array uses. The first draw (1 to
    // 32768) fixes the direction of the search: upward from the lower half,
    // downward from the upper half. Upward wraps from 32768 to 1; downward runs
    // through 0 and then keeps restarting at 0 - 1 (as an unsigned number) until
    // a free value turns up. Identifiers are unique per list only.
    template <typename List>
    static std::uint32_t unusedUniqueIdfromArray(const List& array) {
        std::uint32_t id = static_cast<std::uint32_t>(nextRandom() % 32768) + 1;
        const std::uint32_t step = id < 16385 ? 1u : static_cast<std::uint32_t>(-1);
        while (objectIndexForId(id, array) >= 0) {
            id = id < 32768 ? id + step : 0 + step;
        }
        return id;
    }

    // Gives `object` an identifier unused in the array, then appends it.
    template <typename T>
    static void addToArrayAndCreateUniqueId(std::vector<std::shared_ptr<T>>& array,
                                            std::shared_ptr<T> object) {
        object->setUniqueId(unusedUniqueIdfromArray(array));
        array.push_back(std::move(object));
    }

private:
    std::uint32_t uniqueId_ = 0;
};

}  // namespace quillon
