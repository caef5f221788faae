// SPDX-License-Identifier: Apache-2.0
// vestrelctl messages: the catalogue of log messages; the library's from its own records.
#include "ctl/LogSection.h"
#include "ctl/Verbs.h"
#include "logmsg/Catalogue.h"
#include "logmsg/RecordText.h"
#include "platform/zell/LogSinks.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace Vestrel {

namespace {

using Names = std::vector<std::string>;

Json rowOf(const Zell::LogDescriptor& record) {
    return {{"name", record.name},
            {"format", record.format},
            {"explanation", explanationText(record)},
            {"recommendedAction", actionText(record)},
            {"severity", record.severity},
            {"messageId", Zell::messageId(record.name)}};
}

// Without names all of them.
ExitStatus messages(const Names& names, Output& output) {
    const auto records = catalogue(logSection());
    Json rows = Json::array();
    for (const Zell::LogDescriptor& record : records) {
        if (names.empty() || std::ranges::find(names, record.name) != names.end()) {
            rows.push_back(rowOf(record));
        }
    }
    output.records("messages",
                   {{"name", "Name"},
                    {"format", "Format"},
                    {"explanation", "Explanation"},
                    {"recommendedAction", "Action"},
                    {"severity", "Severity"},
                    {"messageId", "Journal"}},
                   rows);
    ExitStatus status = ExitStatus::done;
    for (const std::string& name : names) {
        if (std::ranges::find(records, name, &Zell::LogDescriptor::name) == records.end()) {
            output.complaint("no message is named " + name);
            status = ExitStatus::failed;
        }
    }
    return status;
}

} // namespace

void addMessages(CLI::App& app, Action& chosen) {
    CLI::App* const verb =
        app.add_subcommand("messages", "Explain the log messages, all or those named");
    const auto names = std::make_shared<Names>();
    verb->add_option("NAME", *names, "Name of a message, such as VESTREL_INTEGRITY");
    verb->callback([names, &chosen] {
        chosen = [names](Output& output) { return messages(*names, output); };
    });
}

} // namespace Vestrel
