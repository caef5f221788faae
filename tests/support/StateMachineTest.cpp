// SPDX-License-Identifier: Apache-2.0
// The fixture of the state machines' tests.
#include "tests/support/StateMachineTest.h"

#include "keymodel/IntegrityConstants.h"
#include "platform/brisklog/Brisklog.h"
#include "platform/zell/LogSinks.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace Vestrel::Tests {

namespace fs = std::filesystem;

StateMachineTest::StateMachineTest() {
    keys.keyring(".ima");
    keys.keyring(".secondary_trusted_keys");
    keys.keyring(".builtin_trusted_keys", readOnlyKeyring);
    keys.keyring(".machine", readOnlyKeyring);
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        fs::create_directories(directory(name));
    }
    Zell::traceLevelIs(5);
    Zell::traceSinkIs([this](const Zell::TraceLine& line) {
        lines_.push_back({line.level, std::string(line.text)});
        if (onTrace) {
            onTrace(std::to_string(line.level) + " " + lines_.back().text);
        }
    });
    Zell::LogFacility::sinkIs(
        [this](const Zell::LogMessage& message) { messages.push_back(Zell::logLine(message)); });
    Zell::LogFacility::clockIs(nullptr);
    Zell::LogFacility::defaultLimitIs({});
    calls.clear();
}

StateMachineTest::~StateMachineTest() {
    onTrace = nullptr;
    sm = nullptr;
    Zell::traceSinkIs(nullptr);
    Zell::traceLevelIs(1);
    Zell::LogFacility::sinkIs(nullptr);
    Brisklog::eventsDelAll();
    fs::remove_all("/etc/keys");
}

void StateMachineTest::start(bool keepTraces) {
    sm = integrityKeyringSmFactory(coll);
    if (!keepTraces) {
        clear();
    }
}

std::string StateMachineTest::directory(const std::string& keyring) {
    return std::string(IntegrityConstants().keyringPathPrefix(keyring).view());
}

std::string StateMachineTest::file(const std::string& name, const std::string& keyring) {
    return directory(keyring) + "/" + name;
}

void StateMachineTest::write(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

TraceLines StateMachineTest::traces(int upToLevel) const {
    TraceLines result;
    for (const Line& line : lines_) {
        if (line.level <= upToLevel) {
            result.push_back(std::to_string(line.level) + " " + line.text);
        }
    }
    return result;
}

bool StateMachineTest::traced(const std::string& line) const {
    return std::ranges::count(traces(), line) != 0;
}

void StateMachineTest::clear() {
    lines_.clear();
    messages.clear();
    calls.clear();
    keys.clearCalls();
}

} // namespace Vestrel::Tests
