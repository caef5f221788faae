// SPDX-License-Identifier: Apache-2.0
// vestrelctl remove: takes certificates out of a keyring's directory and waits for their keys to
// go.
#include "ctl/AgentRecord.h"
#include "ctl/DirectoryFile.h"
#include "ctl/Keyrings.h"
#include "ctl/Verbs.h"
#include "ctl/Wait.h"
#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"
#include "keymodel/IntegrityConstants.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace Vestrel {

namespace {

struct Options {
    std::string keyring;
    std::vector<std::string> names;
    double wait = 0;
};

struct Removal {
    std::string path;
    std::string description;
    std::string outcome;
    std::string explanation; // of an outcome that is not what was asked for
    ExitStatus status = ExitStatus::done;
};

std::string complaintOf(const std::string& name) {
    return name.find('/') == std::string::npos && name != "." && name != ".."
               ? ""
               : name + " is not the name of a file in the directory";
}

// One that is not there has no keys; who is not root is not shown it.
bool isSeen(const std::string& keyring, const KernelView& kernel) {
    const KeyringView* const view = kernel.keyring(keyring);
    return view != nullptr && (view->error == 0 || (view->error == ENOKEY && kernel.isRoot));
}

void noteThatNoKeyWasSeen(Removal& removal, const Options& options, const Surroundings& known) {
    removal.outcome = "removed";
    removal.explanation = "no key of it was in " + options.keyring;
    if (!removal.description.empty() && !isSeen(options.keyring, known.kernel)) {
        removal.explanation = "whether a key of it is in " + options.keyring + " cannot be known";
        removal.status = ExitStatus::unknown;
    }
}

void noteWhyTheKeyStays(Removal& removal, const Options& options, const Surroundings& known) {
    const auto others = known.stock.carriers(options.keyring, removal.description, removal.path);
    const KeyringView* const keyring = known.kernel.keyring(options.keyring);
    if (!others.empty()) {
        removal.outcome = "key-stays";
        removal.explanation = others.front() + " carries the same key";
    } else if (keyring != nullptr && keyring->error == 0 && !keyring->isWritable) {
        removal.outcome = "key-stays";
        removal.explanation = "only the kernel itself changes " + options.keyring;
    }
}

void awaitAbsence(Removal& removal, const Options& options) {
    std::string noAgent;
    const auto isOver = [&] {
        noAgent = noAgentReason(); // first, so that the last deed of an agent that ends is seen
        if (keysOf(options.keyring, removal.description).empty()) {
            removal.outcome = "unlinked";
        }
        return !removal.outcome.empty() || !noAgent.empty();
    };
    holdsWithin(options.wait, isOver);
    if (removal.outcome.empty()) {
        removal.outcome = "not-unlinked";
        removal.status = ExitStatus::late;
        removal.explanation =
            "its key is still in " + options.keyring +
            (noAgent.empty() ? ""
                             : "; " + noAgent + ", and one that starts keeps keys without a file");
    }
}

void carriedOut(Removal& removal, const Options& options) {
    const auto der = readCertificateFile(removal.path.c_str());
    removal.description = der ? certificateDescription(*der) : std::string();
    const Surroundings known = surroundings();
    const bool hadKey = !keysOf(options.keyring, removal.description).empty();
    try {
        fileDel(removal.path);
    } catch (const std::system_error& failure) {
        removal.outcome = "not-removed";
        removal.explanation = failure.code().message(); // the line begins with the path
        removal.status = ExitStatus::failed;
        return;
    }
    if (removal.description.empty() || !hadKey) {
        noteThatNoKeyWasSeen(removal, options, known);
        return;
    }
    noteWhyTheKeyStays(removal, options, known);
    if (removal.outcome.empty() && options.wait == 0) {
        removal.outcome = "removed";
    } else if (removal.outcome.empty()) {
        awaitAbsence(removal, options);
    }
}

std::string removalLine(const Json& row) {
    const auto text = [&](const char* member) { return row.at(member).get<std::string>(); };
    std::string line = text("path").append(": ").append(text("outcome"));
    if (!text("description").empty()) {
        line.append(" \"").append(text("description")).append("\"");
    }
    if (!text("explanation").empty()) {
        line.append(": ").append(text("explanation"));
    }
    return line;
}

ExitStatus remove(const Options& options, Output& output) {
    ExitStatus status = ExitStatus::done;
    Json rows = Json::array();
    const std::string directory(IntegrityConstants().keyringPathPrefix(options.keyring).view());
    for (const std::string& name : options.names) {
        Removal removal;
        removal.path = (std::filesystem::path(directory) / name).string();
        carriedOut(removal, options);
        status = worse(status, removal.status);
        rows.push_back({{"path", removal.path},
                        {"description", removal.description},
                        {"outcome", removal.outcome},
                        {"explanation", removal.explanation}});
    }
    output.lines("remove", rows, removalLine);
    return status;
}

} // namespace

void addRemove(CLI::App& app, Action& chosen) {
    CLI::App* const verb = app.add_subcommand(
        "remove", "Take certificates out of a keyring's directory and wait for their keys to go");
    const auto options = std::make_shared<Options>();
    addKeyring(*verb, options->keyring);
    verb->add_option("NAME", options->names, "Name of a file in the keyring's directory")
        ->required()
        ->check(complaintOf);
    addWait(*verb, options->wait);
    verb->callback([options, &chosen] {
        chosen = [options](Output& output) { return remove(*options, output); };
    });
}

} // namespace Vestrel
