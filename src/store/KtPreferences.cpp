#include "store/KtPreferences.h"

#include <mutex>

namespace quillon {

namespace {

std::shared_ptr<KtPreferences>& sharedInstance() {
    static std::shared_ptr<KtPreferences> instance;
    return instance;
}

std::vector<KtPreferences::Observer>& observers() {
    static std::vector<KtPreferences::Observer> list;
    return list;
}

}  // namespace

std::shared_ptr<KtPreferences> KtPreferences::userPrefs() {
    auto& instance = sharedInstance();
    if (!instance) instance = std::make_shared<KtPreferences>();
    return instance->global() ? nullptr : instance;
}

std::shared_ptr<KtPreferences> KtPreferences::sharedPrefs() { return sharedInstance(); }

void KtPreferences::resetShared() { sharedInstance().reset(); }

std::optional<PlistValue> KtPreferences::objectForKey(Key key) const {
    if (global_) return AbstractResource::objectForKey(key);
    if (!key) return std::nullopt;
    return store_->objectForKey(*key);
}

void KtPreferences::setObject(std::optional<PlistValue> value, Key key) {
    if (global_) {
        AbstractResource::setObject(std::move(value), key);
        saveToFile();
        return;
    }
    if (value && key) store_->setObject(*value, *key);
}

void KtPreferences::removeObjectForKey(Key key) {
    if (global_) {
        AbstractResource::removeObjectForKey(key);
        saveToFile();
        return;
    }
    if (key) store_->removeObject(*key);
}

bool KtPreferences::boolForKey(std::string_view key) const {
    return global_ ? AbstractResource::boolForKey(key) : store_->boolForKey(key);
}

void KtPreferences::setBool(bool value, std::string_view key) {
    if (global_) {
        // The base stores "YES"/"NO" through setObject, which saves.
        AbstractResource::setBool(value, key);
        return;
    }
    store_->setBool(value, key);
}

int KtPreferences::intForKey(std::string_view key) const {
    return global_ ? AbstractResource::intForKey(key) : store_->intForKey(key);
}

void KtPreferences::setInt(int value, std::string_view key) {
    if (global_) {
        AbstractResource::setInt(value, key);
        return;
    }
    store_->setInt(value, key);
}

float KtPreferences::floatForKey(std::string_view key) const {
    return global_ ? AbstractResource::floatForKey(key) : store_->floatForKey(key);
}

void KtPreferences::setFloat(float value, std::string_view key) {
    if (global_) {
        AbstractResource::setFloat(value, key);
        return;
    }
    store_->setFloat(value, key);
}

void KtPreferences::registerDefaults(const PlistValue::Dictionary& defaults) {
    if (global_) {
        addEntries(defaults);
        saveToFile();
        return;
    }
    store_->registerDefaults(defaults);
}

void KtPreferences::updateValuesWithDictionary(const PlistValue::Dictionary& values) {
    registerDefaults(values);
    for (const Observer& observer : observers()) observer(kChangedNotification, *this, values);
}

PlistValue::Dictionary KtPreferences::getValuesForKeys(const std::vector<std::string>& keys) const {
    PlistValue::Dictionary out;
    for (const std::string& key : keys) {
        if (auto value = objectForKey(key)) out.insert_or_assign(key, std::move(*value));
    }
    return out;
}

void KtPreferences::addObserver(Observer observer) { observers().push_back(std::move(observer)); }

void KtPreferences::removeAllObservers() { observers().clear(); }

}  // namespace quillon
