// SPDX-License-Identifier: Apache-2.0
// Drives the event loop of the state machine by hand.
#include "tests/kernel/cases/LibraryHost.h"

#include "keymodel/IntegrityConstants.h"
#include "platform/brisklog/Brisklog.h"
#include "platform/zell/LogFacility.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/TraceHandle.h"

#include <poll.h>

#include <filesystem>
#include <stdexcept>

namespace Vestrel::Tests {

namespace {

constexpr int stepMilliseconds = 3;

} // namespace

void provideDirectories() {
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        std::filesystem::create_directories(IntegrityConstants().keyringPathPrefix(name).view());
    }
}

void LibraryHost::start() {
    traces_.clear();
    messages_.clear();
    provideDirectories();
    Zell::traceLevelIs(5);
    Zell::traceSinkIs([this](const Zell::TraceLine& line) {
        if (line.handle == "IntegrityKeyringSm") {
            traces_.push_back(std::to_string(line.level) + " " + std::string(line.text));
        }
    });
    Zell::LogFacility::sinkIs(
        [this](const Zell::LogMessage& message) { messages_.push_back(Zell::logLine(message)); });
    loop_ = Zell::ActivityFacility::activityManager();
    keyrings_ = Orvo::makeNode<IntegrityKeyringColl>();
    stateMachine_ = integrityKeyringSmFactory(keyrings_);
}

const IntegrityKeyColl& LibraryHost::keyColl(const std::string& keyring) const {
    const IntegrityKeyColl* const keyColl = keyrings_->keyring(keyring).get();
    if (keyColl == nullptr) {
        throw std::runtime_error(keyring + " is not managed");
    }
    return *keyColl;
}

void LibraryHost::release() {
    stateMachine_ = nullptr;
    keyrings_ = nullptr;
    loop_ = nullptr;
    Zell::traceSinkIs(nullptr);
    Zell::traceLevelIs(1);
    Zell::LogFacility::sinkIs(nullptr);
    Zell::LogFacility::clockIs(nullptr); // forgets what was logged how often
    Brisklog::eventsDelAll();
}

void LibraryHost::step() {
    loop_->dispatch();
    pollfd loop{loop_->pollFd(), POLLIN, 0};
    poll(&loop, 1, stepMilliseconds);
    loop_->dispatch();
}

} // namespace Vestrel::Tests
