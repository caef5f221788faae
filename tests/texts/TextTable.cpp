// SPDX-License-Identifier: Apache-2.0
// The table of the traces, in the order in which the operations stand in the life of a keyring.
#include "tests/texts/TextTable.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace Vestrel::Tests {

namespace {

constexpr std::string_view keyrings = "IntegrityKeyringSm";
constexpr std::string_view syslog = "IntegritySyslogSm";

constexpr int highestErrno = 133;
constexpr int fieldsAfterType = 4; // uid, gid, permissions, description
constexpr std::size_t keyIdentifierSize = 20;

bool isNumber(std::string_view value) {
    if (value.starts_with('-')) {
        value.remove_prefix(1);
    }
    return !value.empty() &&
           std::ranges::all_of(value, [](char c) { return c >= '0' && c <= '9'; });
}

bool isCause(std::string_view value) {
    for (int error = 1; error <= highestErrno; ++error) {
        if (value == std::strerror(error)) {
            return true;
        }
    }
    return false;
}

// The subject, ": " and the key's identifier in hexadecimal.
bool isDescription(std::string_view value) {
    const auto at = value.rfind(": ");
    return at != std::string_view::npos && at != 0 &&
           value.size() - at == std::string_view(": ").size() + 2 * keyIdentifierSize;
}

bool isQuoted(std::string_view value) {
    return value.size() > 2 && value.starts_with("\"/etc/keys/") && value.ends_with('"');
}

std::string replaced(std::string text, std::string_view what, std::string_view by) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), by);
    }
    return text;
}

} // namespace

const std::vector<TraceText>& traceTexts() {
    constexpr auto number = numberKind;
    constexpr auto ring = ringKind;
    constexpr auto cause = causeKind;
    constexpr auto path = fileKind;
    constexpr auto quoted = quotedKind;
    static const std::vector<TraceText> table{
        // start-up
        {keyrings, "handleInitialized", 5, {""}},
        {keyrings, "createWatcher", 5, {ring}},
        {keyrings, "createWatcher", 1, {"find_key_by_type_and_desc: ", cause, ", keyring ", ring}},
        {keyrings, "createWatcher", 5, {"keyringId: ", number}},
        {keyrings, "createWatcher", 1, {"keyctl_read_alloc: ", cause}},
        {keyrings, "createWatcher", 5, {"keyctl_read_alloc:", number, " bytes"}},
        {keyrings, "createWatcher", 5, {"Found ", number, " existing keys"}},
        {keyrings, "createWatcher", 5, {"Processing existing key ", number}},
        {keyrings, "createWatcher", 5, {"Creating key ", keyKind}},
        {keyrings, "createWatcher", 5, {"Loading key ", path, " as it was not in the keyring"}},
        // shutdown
        {keyrings, "handleDelete", 5, {""}},
        {keyrings, "closeAllFd", 5, {""}},
        {keyrings, "closeAllFd", 1, {"close readFd: ", number, ", ", cause}},
        {keyrings, "closeAllFd", 1, {"close writeFd: ", number, ", ", cause}},
        {keyrings, "closeAllFd", 1, {"close inotifyFd: ", number, ", ", cause}},
        // keys of the kernel
        {keyrings, "getKey", 5, {number, ", ", ring}},
        {keyrings, "getKey", 1, {"keyctl_describe_alloc: ", cause}},
        {keyrings, "getKey", 5, {"keyctl_describe_alloc: ", kernelKind}},
        {keyrings, "getKey", 5, {"Key is a keyring, ignoring"}},
        {keyrings, "clearKey", 5, {number, ", ", ring}},
        {keyrings, "unlinkKey", 5, {number, ", ", ring}},
        {keyrings, "unlinkKey", 5, {"No watcher info for ", ring}},
        {keyrings, "unlinkKey", 5, {"Unlinking ", number}},
        {keyrings, "unlinkKey", 1, {"keyctl_unlink: ", cause}},
        {keyrings, "removeDuplicates", 5, {number, ", ", ring}},
        {keyrings, "removeDuplicates", 5, {"Removing duplicate ", number}},
        // files
        {keyrings, "loadFile", 5, {ring, ", ", path}},
        {keyrings, "loadFile", 5, {"Mapping ", number, " to ", path}},
        {keyrings, "modifyFile", 5, {ring, ", ", path}},
        {keyrings, "removeFile", 5, {ring, ", ", path}},
        {keyrings, "unmapFileToDescription", 5, {ring, ", ", path, " <-> ", descriptionKind}},
        {keyrings, "unmapFileToDescription", 5, {"Removing the key matching the old file content"}},
        // the directory watch
        {keyrings, "createInotifyWatch", 5, {ring}},
        {keyrings, "createInotifyWatch", 1, {"inotify_init1: ", cause}},
        {keyrings, "createInotifyWatch", 5, {"Creating watch on directory ", path}},
        {keyrings, "createInotifyWatch", 1, {"inotify_add_watch: ", cause}},
        {keyrings, "handleInotify", 5, {ring}},
        {keyrings, "handleInotify", 5, {"readFd: ", number, ", size: ", "%=4096"}},
        {keyrings, "handleInotify", 5, {"No more to read"}},
        {keyrings, "handleInotify", 1, {"read: ", cause}},
        {keyrings, "handleInotify", 5, {"Read ", number, " bytes"}},
        {keyrings, "handleInotify", 5, {"Read too few bytes for a valid notification"}},
        {keyrings,
         "handleInotify",
         5,
         {"Received notification for watch ", number, " with mask ", number, ", cookie ", number,
          ", name (size ", number, ") ", nameKind}},
        {keyrings, "handleInotify", 5, {"Skipping temporary file"}},
        {keyrings, "handleInotify", 5, {quoted, " was monitored: ", flagKind}},
        {keyrings, "handleInotify", 5, {quoted, " was closed after writing"}},
        {keyrings, "handleInotify", 5, {"Non-regular file: ", quoted}},
        {keyrings, "handleInotify", 5, {quoted, " has been deleted"}},
        {keyrings, "handleInotify", 5, {quoted, " was moved from this directory"}},
        {keyrings, "handleInotify", 5, {quoted, " was moved to this directory"}},
        {keyrings, "handleInotify", 5, {"Moved from", path}},
        {keyrings, "handleInotify", 5, {"Moved from the outside world"}},
        // the watch queue
        {keyrings, "createKeyringWatch", 1, {"pipe2: ", cause}},
        {keyrings, "createKeyringWatch", 5, {"readFd: ", number}},
        {keyrings, "createKeyringWatch", 5, {"writeFd: ", number}},
        {keyrings, "createKeyringWatch", 1, {"ioctl IOC_WATCH_QUEUE_SET_SIZE: ", cause}},
        {keyrings, "createKeyringWatch", 5, {ring, " assigned watchId ", number}},
        {keyrings, "createKeyringWatch", 1, {"keyctl_watch_key: ", cause}},
        {keyrings, "handleKeyringWatch", 5, {ring}},
        {keyrings, "handleKeyringWatch", 5, {"No more to read"}},
        {keyrings, "handleKeyringWatch", 1, {"read: ", cause}},
        {keyrings, "handleKeyringWatch", 5, {"Read ", number, " bytes"}},
        {keyrings, "handleKeyringWatch", 5, {"Read too few bytes for a valid notification"}},
        {keyrings,
         "handleKeyringWatch",
         5,
         {"Received notification of type ", number, ", subType ", number}},
        {keyrings, "handleKeyringWatch", 5, {"Length of notification: ", number}},
        {keyrings, "handleKeyringWatch", 1, {"Watched keyring ", ring, " has been removed"}},
        {keyrings, "handleKeyringWatch", 1, {"Notification was lost"}},
        {keyrings, "handleKeyringWatch", 1, {"Unknown meta notification received: ", "%=0"}},
        {keyrings, "handleKeyringWatch", 1, {"Notification has incorrect message length"}},
        {keyrings,
         "handleKeyringWatch",
         5,
         {"Received notification for keyring: ", number, ", subType: ", subtypeKind,
          ", keyId: ", number}},
        {keyrings, "handleKeyringWatch", 5, {"Ignoring notification"}},
        // the socket for kernel lines
        {syslog, "handleInitialized", 5, {""}},
        {syslog, "handleInitialized", 1, {"socket: ", cause}},
        {syslog, "handleInitialized", 1, {"bind: ", cause}},
        {syslog,
         "handleInitialized",
         5,
         {"Socket opened ", number, " path ", "%=/var/run/IMAKernelMessages"}},
        {syslog, "handleLog", 5, {""}},
        {syslog, "handleLog", 1, {"read: ", cause}},
        {syslog, "handleDelete", 5, {""}},
        {syslog, "processKernelMsg", 5, {""}},
    };
    return table;
}

const std::vector<Signature>& signatures() {
    static const std::vector<Signature> table{
        {keyrings, "handleInitialized", "void IntegrityKeyringSm::handleInitialized()"},
        {keyrings, "createWatcher", "void IntegrityKeyringSm::createWatcher(const Orvo::String&)"},
        {keyrings, "handleDelete", "void IntegrityKeyringSm::handleDelete()"},
        {keyrings, "closeAllFd", "void IntegrityKeyringSm::closeAllFd()"},
        {keyrings, "getKey", "IntegrityKey IntegrityKeyringSm::getKey(S32, const Orvo::String&)"},
        {keyrings, "clearKey", "void IntegrityKeyringSm::clearKey(S32, const Orvo::String&)"},
        {keyrings, "unlinkKey", "void IntegrityKeyringSm::unlinkKey(S32, const Orvo::String&)"},
        {keyrings, "removeDuplicates",
         "void IntegrityKeyringSm::removeDuplicates(const IntegrityKey&, const Orvo::String&)"},
        {keyrings, "loadFile",
         "key_serial_t IntegrityKeyringSm::loadFile(const Orvo::String&, const Orvo::String&)"},
        {keyrings, "modifyFile",
         "void IntegrityKeyringSm::modifyFile(const Orvo::String&, const Orvo::String&)"},
        {keyrings, "removeFile",
         "void IntegrityKeyringSm::removeFile(const Orvo::String&, const Orvo::String&)"},
        {keyrings, "unmapFileToDescription",
         "void IntegrityKeyringSm::unmapFileToDescription(const Orvo::String&, "
         "const Orvo::String&, const Orvo::String&)"},
        {keyrings, "createInotifyWatch",
         "KeyringWatcherInfo IntegrityKeyringSm::createInotifyWatch(const KeyringWatcherInfo&)"},
        {keyrings, "handleInotify", "void IntegrityKeyringSm::handleInotify(const Orvo::String&)"},
        {keyrings, "createKeyringWatch",
         "KeyringWatcherInfo IntegrityKeyringSm::createKeyringWatch(const KeyringWatcherInfo&)"},
        {keyrings, "handleKeyringWatch",
         "void IntegrityKeyringSm::handleKeyringWatch(const Orvo::String&)"},
        {syslog, "handleInitialized", "void IntegritySyslogSm::handleInitialized()"},
        {syslog, "handleLog", "void IntegritySyslogSm::handleLog()"},
        {syslog, "handleDelete", "void IntegritySyslogSm::handleDelete()"},
        {syslog, "processKernelMsg",
         "void IntegritySyslogSm::processKernelMsg(const Orvo::String&)"},
    };
    return table;
}

std::string plainSignature(std::string signature) {
    signature = replaced(std::move(signature), "Vestrel::", "");
    return replaced(std::move(signature), " &", "&");
}

bool isOfKind(std::string_view kindOrText, std::string_view value) {
    if (kindOrText.starts_with(constantKind)) {
        return kindOrText.substr(constantKind.size()) == value;
    }
    if (kindOrText == numberKind) {
        return isNumber(value);
    }
    if (kindOrText == ringKind) {
        return value.starts_with('.');
    }
    if (kindOrText == causeKind) {
        return isCause(value);
    }
    if (kindOrText == fileKind) {
        return value.starts_with("/etc/keys/");
    }
    if (kindOrText == quotedKind) {
        return isQuoted(value);
    }
    if (kindOrText == flagKind) {
        return value == "0" || value == "1";
    }
    if (kindOrText == keyKind) {
        return value.starts_with("Vestrel::IntegrityKey( serial=") && value.ends_with(" )");
    }
    if (kindOrText == kernelKind) {
        return std::ranges::count(value, ';') == fieldsAfterType;
    }
    if (kindOrText == descriptionKind) {
        return isDescription(value);
    }
    if (kindOrText == nameKind) {
        return !value.empty() && value.find('/') == std::string_view::npos;
    }
    if (kindOrText == subtypeKind) {
        return value == "linked" || value == "unlinked" || value == "updated";
    }
    return kindOrText == value;
}

std::string textOf(const TraceText& row) {
    std::string text = std::string(row.handle) + " " + std::to_string(row.level) + " " +
                       std::string(row.operation) + ": ";
    for (const std::string_view value : row.values) {
        text += value;
    }
    return text;
}

} // namespace Vestrel::Tests
