// SPDX-License-Identifier: Apache-2.0
// Where a scenario is played: the real directories, and a key service that is the kernel's or its
// model.
#pragma once

#include "keymodel/IntegrityKeyringColl.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/zell/OwnedFd.h"
#include "tests/scenario/Contents.h"
#include "tests/scenario/Observation.h"
#include "tests/scenario/Step.h"
#include "tests/scenario/Tree.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

/// One at a time: the directories and the keyrings are the process's. Every step that the system
/// refuses is thrown as an exception: the scenario is wrong then.
class Stage {
public:
    Stage();
    virtual ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    virtual const Contents& contents() const = 0;
    /// The keys of the keyring `name`, without nested keyrings.
    virtual Members members(const std::string& name) const = 0;
    /// The keys that another process holds, by content.
    virtual std::map<std::string, key_serial_t> held() const = 0;
    virtual key_serial_t serialOf(const std::string& keyring) const = 0;
    virtual const IntegrityKeyringColl& keyrings() const = 0;
    /// Only after the first "restart".
    virtual const IntegrityKeyringSm& stateMachine() const = 0;
    /// The log messages since the last call.
    virtual std::vector<std::string> messagesTaken() = 0;

    void perform(const Step& step);

    /// What is not in the directories as it is in the tree, or nothing.
    std::optional<std::string> difference(const Tree& tree) const;

protected:
    // What other hands do: 0, or the errno with which they are refused.
    virtual int add(const std::string& keyring, const Content& content) = 0;
    virtual int link(const std::string& keyring, key_serial_t key) = 0;
    virtual int unlink(const std::string& keyring, key_serial_t key) = 0;
    virtual int clear(const std::string& keyring) = 0;
    virtual void loop() = 0;
    virtual void restart() = 0;

private:
    bool performOnFiles(const Step& step);
    void performOnKeys(const Step& step);
    int triedOnKeys(const Step& step, const std::string& keyring);
    int unlinkDescribed(const std::string& keyring, const std::string& description);
    Zell::OwnedFd written(const std::string& path, const std::string& content) const;
    std::string seen(const std::string& path) const;
    std::string expected(const Tree::Node& node) const;

    std::map<std::string, Zell::OwnedFd> handles_;
};

} // namespace Vestrel::Tests
