// SPDX-License-Identifier: Apache-2.0
// What tests of the state machines share: the model of the key service, the four certificate
// directories, the traces and the log messages that were written.
#pragma once

#include "keymodel/IntegrityKeyringColl.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogFacility.h"
#include "platform/zell/TraceHandle.h"
#include "tests/fakes/KeyService.h"
#include "tests/fakes/SystemCalls.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

// One trace line as "LEVEL TEXT", such as "5 getKey: 17, .ima".
using TraceLines = std::vector<std::string>;

// Each test starts with the four keyrings (.builtin_trusted_keys and .machine refuse user space),
// empty certificate directories under /etc/keys, traces on at level 5, and no state machine.
class StateMachineTest : public testing::Test {
protected:
    StateMachineTest();
    ~StateMachineTest() override;

    // Starts the state machine and forgets the traces and calls of the start-up unless `keep`.
    void start(bool keepTraces = false);

    // Drops the state machine.
    void stop() { sm = nullptr; }

    // Runs the event loop until nothing is ready.
    void dispatch() { loop->dispatch(); }

    // A path in the directory of the keyring, such as file(".ima", "a.der").
    static std::string directory(const std::string& keyring = ".ima");
    static std::string file(const std::string& name, const std::string& keyring = ".ima");
    // Plain file operations; `content` is what the model of the key service describes a key by,
    // unless the test sets KeyService::describeWith.
    static void write(const std::string& path, const std::string& content);

    Orvo::Ptr<IntegrityKeyColl> keyColl(const std::string& keyring = ".ima") const {
        return coll->keyring(keyring);
    }

    // The trace lines written since the last call of clear(), of the given levels or of all.
    TraceLines traces(int upToLevel = 5) const;
    bool traced(const std::string& line) const; // exactly that line
    void clear();                               // traces, log messages, recorded calls

    // Called with each trace line as it is written, for a look at what stands at that moment.
    std::function<void(const std::string& line)> onTrace;

    KeyService keys;
    SystemCalls calls;
    std::vector<std::string> messages; // log messages as "NAME: TEXT"
    Orvo::Ptr<Zell::ActivityManager> loop = Zell::ActivityFacility::activityManager();
    Orvo::Ptr<IntegrityKeyringColl> coll = Orvo::makeNode<IntegrityKeyringColl>();
    Orvo::Ptr<IntegrityKeyringSm> sm;

private:
    struct Line {
        int level;
        std::string text;
    };

    std::vector<Line> lines_;
};

} // namespace Vestrel::Tests
