#pragma once
// A general-purpose settings store with two back-ends: the per-user defaults
// store (global off, the default) or the resource's own dictionary (global on),
// which is then saved to the resource's file after every write. The system's
// own settings do not use it.
//
// Thread contract: main thread. Change observers run on the thread that made
// the change.
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/DefaultsStore.h"
#include "store/AbstractResource.h"

namespace quillon {

class KtPreferences : public AbstractResource {
public:
    static constexpr const char* kInitedKey = "_RBPrefsInited";
    static constexpr const char* kChangedNotification = "_KtPreferencesChanged";
    // Called with the notification name, the instance and the merged values.
    using Observer = std::function<void(std::string_view name, KtPreferences& sender,
                                        const PlistValue::Dictionary& userInfo)>;

    explicit KtPreferences(DefaultsStore& store = DefaultsStore::standard()) : store_(&store) {}

    // The shared instance, created with global off on first call; null when the
    // shared instance has been made global.
    static std::shared_ptr<KtPreferences> userPrefs();
    // The shared instance or null, without creating it.
    static std::shared_ptr<KtPreferences> sharedPrefs();
    static void resetShared();

    bool global() const { return global_; }
    void setGlobal(bool on) { global_ = on; }

    std::optional<PlistValue> objectForKey(Key key) const override;
    void setObject(std::optional<PlistValue> value, Key key) override;
    void removeObjectForKey(Key key) override;
    bool boolForKey(std::string_view key) const override;
    void setBool(bool value, std::string_view key) override;
    int intForKey(std::string_view key) const override;
    void setInt(int value, std::string_view key) override;
    float floatForKey(std::string_view key) const override;
    void setFloat(float value, std::string_view key) override;
    void registerDefaults(const PlistValue::Dictionary& defaults);

    bool inited() const { return boolForKey(kInitedKey); }
    void setInited() { setBool(true, kInitedKey); }

    // Merges the values into the active back-end, then tells the observers.
    void updateValuesWithDictionary(const PlistValue::Dictionary& values);
    // The values of those keys that have one in the active back-end.
    PlistValue::Dictionary getValuesForKeys(const std::vector<std::string>& keys) const;

    static void addObserver(Observer observer);
    static void removeAllObservers();

protected:
    std::shared_ptr<AbstractResource> newResource() const override {
        auto r = std::make_shared<KtPreferences>(*store_);
        r->setGlobal(global_);
        return r;
    }

private:
    DefaultsStore* store_;
    bool global_ = false;
};

}  // namespace quillon
