// SPDX-License-Identifier: Apache-2.0
// From a refusal to its explanation.
#include "agent/LoadFailures.h"

#include "diagnosis/DiagnosisText.h"
#include "keyring/IntegrityKeyringSm.h"
#include "logmsg/AgentMessages.h"
#include "logmsg/LogCall.h"

#include <ctime>
#include <string_view>

namespace Vestrel {

namespace {

constexpr std::string_view loadFailure = "VESTREL_INTEGRITY_LOAD_KEY_FAIL";
constexpr std::size_t loadFailureArguments = 3; // file, keyring, error text

Zell::LogHandle explanationMessage(&agentDescriptor(AgentMessageId::loadFailureExplained),
                                   Orvo::Duration(), 1.0, 0, 0);

} // namespace

void LoadFailures::seen(const Zell::LogMessage& message) {
    if (message.descriptor.name != loadFailure ||
        message.arguments.size() != loadFailureArguments || waiting_.size() == maxWaiting) {
        return;
    }
    waiting_.emplace_back(message.arguments[0].view(), message.arguments[1].view());
    if (waiting_.size() == 1) {
        loop_->soonIs([this, held = std::weak_ptr(alive_)] {
            if (!held.expired()) {
                explain();
            }
        });
    }
}

void LoadFailures::explain() {
    const auto& names = IntegrityKeyringSm::keyringNames;
    Surroundings known{kernelView(names), {}, std::time(nullptr)};
    known.stock.directoriesAdd(names);
    for (const auto& [file, keyring] : std::exchange(waiting_, {})) {
        const FileContent content = fileContent(file);
        const Diagnosis diagnosis = diagnose(content, keyring, known);
        log(explanationMessage, file, keyring, textOf(diagnosis, content, keyring));
    }
}

} // namespace Vestrel
