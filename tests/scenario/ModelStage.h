// SPDX-License-Identifier: Apache-2.0
// A stage on the model of the key service.
#pragma once

#include "tests/scenario/Stage.h"
#include "tests/support/StateMachineTest.h"

#include <random>

namespace Vestrel::Tests {

/// Keys that nobody links any more are forgotten at random moments, as the kernel does it.
class ModelStage final : private StateMachineTest, public Stage {
public:
    explicit ModelStage(std::uint64_t seed);

    const Contents& contents() const override;
    Members members(const std::string& name) const override;

    std::map<std::string, key_serial_t> held() const override { return held_; }

    key_serial_t serialOf(const std::string& keyring) const override {
        return keys.serialOf(keyring);
    }

    const IntegrityKeyringColl& keyrings() const override { return *coll; }

    const IntegrityKeyringSm& stateMachine() const override { return *sm; }

    std::vector<std::string> messagesTaken() override;

protected:
    int add(const std::string& keyring, const Content& content) override;
    int link(const std::string& keyring, key_serial_t key) override;
    int unlink(const std::string& keyring, key_serial_t key) override;
    int clear(const std::string& keyring) override;
    void loop() override;
    void restart() override;

private:
    void TestBody() override {}

    void forgetKeysPerhaps();
    int changed(const std::string& keyring, const std::function<void()>& change) const;

    std::mt19937_64 random_;
    std::map<std::string, key_serial_t> held_;
};

} // namespace Vestrel::Tests
