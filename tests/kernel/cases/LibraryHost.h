// SPDX-License-Identifier: Apache-2.0
// Runs the state machine in the test program, where its collections can be looked at.
#pragma once

#include "keymodel/IntegrityKeyringColl.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/zell/ActivityManager.h"
#include "tests/kernel/cases/Host.h"

namespace Vestrel::Tests {

/// The directories are the host's to make.
void provideDirectories();

/// Holds everything that a program needs for a state machine; releases all of it at the stop.
class LibraryHost final : public Host {
public:
    ~LibraryHost() override { release(); }

    void start() override;

    void stop() override { release(); }

    void step() override;

    /// Runs what is ready, and what that makes ready, without waiting.
    void dispatch() { loop_->dispatch(); }

    const std::vector<std::string>& traces() override { return traces_; }

    const std::vector<std::string>& messages() override { return messages_; }

    /// Null while it is not running.
    const Orvo::Ptr<IntegrityKeyringSm>& stateMachine() const { return stateMachine_; }

    const Orvo::Ptr<IntegrityKeyringColl>& keyrings() const { return keyrings_; }

    /// Throws std::runtime_error when the keyring is not managed.
    const IntegrityKeyColl& keyColl(const std::string& keyring = ".ima") const;

private:
    void release();

    Orvo::Ptr<Zell::ActivityManager> loop_;
    Orvo::Ptr<IntegrityKeyringColl> keyrings_;
    Orvo::Ptr<IntegrityKeyringSm> stateMachine_;
    std::vector<std::string> traces_;
    std::vector<std::string> messages_;
};

} // namespace Vestrel::Tests
