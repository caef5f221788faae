// SPDX-License-Identifier: Apache-2.0
// Explains why certificates were refused.
#pragma once

#include "platform/orvo/Ptr.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogFacility.h"

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Vestrel {

// Sees the log messages that the process raises; for each "VESTREL_INTEGRITY_LOAD_KEY_FAIL" raises
// a message that says what "vestrelctl check" would. It looks at the certificate in a later turn of
// the loop, so that no handler of a state machine waits for it, and at a bounded number of them: of
// a burst, those beyond it stay unexplained.
class LoadFailures {
public:
    static constexpr std::size_t maxWaiting = 16;

    explicit LoadFailures(const Orvo::Ptr<Zell::ActivityManager>& loop) : loop_(loop) {}

    void seen(const Zell::LogMessage& message);

private:
    using FileAndKeyring = std::pair<std::string, std::string>;

    void explain();

    Orvo::Ptr<Zell::ActivityManager> loop_;
    std::vector<FileAndKeyring> waiting_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace Vestrel
