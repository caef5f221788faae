// SPDX-License-Identifier: Apache-2.0
// A stage of random scenarios on the real kernel.
#pragma once

#include "tests/kernel/cases/Keyring.h"
#include "tests/kernel/cases/LibraryHost.h"
#include "tests/scenario/Stage.h"

namespace Vestrel::Tests {

/// Leaves no keys behind. The keyrings have to be without keys before.
class KernelStage final : public Stage {
public:
    KernelStage();
    ~KernelStage() override;

    const Contents& contents() const override;
    Members members(const std::string& name) const override;

    std::map<std::string, key_serial_t> held() const override { return held_; }

    key_serial_t serialOf(const std::string& keyring) const override {
        return Keyring::named(keyring).serial();
    }

    const IntegrityKeyringColl& keyrings() const override { return *host_.keyrings(); }

    const IntegrityKeyringSm& stateMachine() const override { return *host_.stateMachine(); }

    std::vector<std::string> messagesTaken() override;

protected:
    int add(const std::string& keyring, const Content& content) override;
    int link(const std::string& keyring, key_serial_t key) override;
    int unlink(const std::string& keyring, key_serial_t key) override;
    int clear(const std::string& keyring) override;
    void loop() override;
    void restart() override;

private:
    LibraryHost host_;
    std::size_t messagesSeen_ = 0;
    std::map<std::string, key_serial_t> held_;
};

} // namespace Vestrel::Tests
