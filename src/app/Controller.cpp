#include "app/Controller.h"

#include "app/UserInterface.h"
#include "engine/Ripper.h"
#include "history/History.h"
#include "platform/DefaultsStore.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "store/Bookmark.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

Controller* running = nullptr;

constexpr const char* kWindowKey = "MainWinPos";

}  // namespace

Controller::Controller(UserInterface& ui, QuestionBoard& questions, Options options)
    : ui_(ui), questions_(questions) {
    // The modules in their order: the activity list first, as every other
    // module starts connections through it; the bookmarks and the station
    // directory keep their folders in the defaults store; the history last.
    mail_ = std::make_unique<MailNotifier>();
    activity_ = std::make_unique<ActivityController>(ui_, std::move(options.services),
                                                     std::move(options.freeSpaceQuery));
    activity_->setMailNotifier(mail_.get());
    schedules_ = std::make_unique<Schedules>(std::move(options.schedulesPath), activity_->ruleStarter(),
                                             std::move(options.clock));
    History::history();
    versionCheck_ = std::make_unique<VersionCheck>(ui_);
    running = this;
}

Controller::~Controller() {
    if (setupTimer_) MainLoop::main().cancelTimer(*setupTimer_);
    // The rules go before the list whose connections they hold.
    versionCheck_.reset();
    schedules_.reset();
    if (running == this) running = nullptr;
}

Controller* Controller::controller() { return running; }

void Controller::start() {
    auto prefs = Preferences::preferences();
    prefs->writeStartupKeys();
    mainWindowFrame_ = prefs->getParam(kWindowKey);
    if (prefs->getState("checkUpdates")) versionCheck_->checkNewVersion(false);
    setupTimer_ = MainLoop::main().addTimer(kSetupDelay, [this] {
        setupTimer_.reset();
        setupControllers();
    });
}

void Controller::setupControllers() {
    verifyStorageFolder(StorageFolder::Module::activity, true);
    verifyStorageFolder(StorageFolder::Module::bookmarks, true);
    verifyStorageFolder(StorageFolder::Module::tuner, false);
    verifyStorageFolder(StorageFolder::Module::schedules, false);
    verifyStorageFolder(StorageFolder::Module::history, false);
    DefaultsStore::standard().synchronize();
    activity_->startDiskSpaceWatch();
}

bool Controller::verifyStorageFolder(StorageFolder::Module module, bool ask) {
    StorageFolder folder = StorageFolder::forModule(module);
    if (folder.verifyStorageFolder(nullptr)) return true;
    if (!ask) return false;
    std::string text = localized(folder.storageErrorMessage(), folder.storageErrorMessage());
    if (!folder.userMayChoose()) {
        ui_.alert(folder.storageErrorMessage(), text);
        return false;
    }
    Log::warn("{} ({})", text, folder.storageFolder());
    QuestionBoard::Question q;
    q.kind = "chooseFolder";
    q.key = folder.storageErrorMessage();
    q.text = text;
    questions_.ask(std::move(q), [folder](const std::string& answer) -> std::optional<std::string> {
        if (!StorageFolder::isUsableFolder(answer)) return "not an existing folder: " + answer;
        folder.setStorageFolder(answer);
        DefaultsStore::standard().synchronize();
        Log::info("Storage folder {} set to {}", folder.storageFolderKey(), answer);
        return std::nullopt;
    });
    return false;
}

Ripper* Controller::openFileConnection(const std::string& path) {
    auto bookmark = Bookmark::resourceFromPath<Bookmark>(path);
    if (!bookmark) {
        ui_.beep();
        return nullptr;
    }
    return activity_->addRecord(*bookmark, nullptr, false, false);
}

bool Controller::openFile(const std::string& path) {
    openFileConnection(path);
    return true;
}

void Controller::quit() {
    auto prefs = Preferences::preferences();
    if (!mainWindowFrame_.empty()) prefs->setParam(mainWindowFrame_, kWindowKey);
    if (!prefs->saveToFile()) Log::warn("Could not save the preferences to {}", prefs->filePath());
}

}  // namespace quillon
