// SPDX-License-Identifier: Apache-2.0
// The steps of the life in which every trace is written.
#include "tests/texts/Scenario.h"

#include "tests/keyring/InotifyBytes.h"

#include <fcntl.h>
#include <sys/inotify.h>

#include <cerrno>
#include <filesystem>

namespace Vestrel::Tests {

namespace {

constexpr std::size_t manyEvents = 100000;
constexpr unsigned metaType = 0;
constexpr unsigned keyType = 1;
constexpr unsigned linked = 2;
constexpr unsigned updated = 1;

} // namespace

Scenario::Scenario() {
    Brisklog::limitsAre({manyEvents, manyEvents * 1024, 4096});
    Brisklog::eventsDelAll();
    std::filesystem::create_directories("/run");
}

Scenario::~Scenario() {
    Brisklog::limitsAre({});
}

void Scenario::everything() {
    startUpWithFailures();
    keysComeAndGo();
    filesComeAndGo();
    hostileNotifications();
    hostileDirectoryEvents();
    shutdownWithFailures();
    kernelLines();
}

// Each failure strikes a keyring of its own, as far as they go.
void Scenario::startUpWithFailures() {
    calls.failNth("inotify_init1", 1, EMFILE);
    calls.failNth("inotify_add_watch", 1, ENOSPC);
    calls.failNth("pipe2", 1, ENFILE);
    calls.failNth("ioctl", 1, EINVAL);
    keys.failNth("keyctl_watch_key", 1, EACCES);
    keys.failNth("keyctl_read_alloc", 1, EACCES);
    keys.failNth("find_key_by_type_and_desc", 4, ENOKEY);
    start(true);
    stop();
}

// One key is there at the start, with a keyring beside it; a file's key is loaded and then linked
// once more under the same description.
void Scenario::keysComeAndGo() {
    keys.addKey(".ima", "key without a file");
    keys.link(".ima", keys.serialOf(".machine"));
    put("loaded", "loaded");
    start(true);
    dispatch();
    write(file("second"), "");
    put("second", "loaded");
    dispatch();
    sm->unlinkKey(1, ".unknown");
    keys.failNext("keyctl_describe_alloc", ENOKEY);
    sm->getKey(1, ".ima");
    keys.unlink(".ima", keys.keysOf(".ima").front());
    dispatch();
}

void Scenario::filesComeAndGo() {
    put("other", "other");
    dispatch();
    put("other", "changed");
    dispatch();
    std::filesystem::rename(file("other"), file("renamed"));
    dispatch();
    put("temporary.integrity-tmp", "new");
    std::filesystem::rename(file("temporary.integrity-tmp"), file("new"));
    dispatch();
    keys.failNext("keyctl_unlink", EACCES);
    std::filesystem::remove(file("renamed"));
    dispatch();
    keys.judgeWith([](KeyService::Bytes) { return ENOKEY; });
    put("refused", "refused");
    dispatch();
    keys.judgeWith({});
}

void Scenario::notification(unsigned type, unsigned subtype, std::uint32_t aux, unsigned length) {
    NotificationRecord record = notificationRecord(type, subtype, 1, 1, aux);
    record.info = (record.info & ~0x7fU) | length;
    keys.post(".ima", record);
}

void Scenario::hostileNotifications() {
    notification(metaType, 0, 0);
    notification(metaType, 1, 0);
    notification(metaType, 2, 0);
    notification(keyType, linked, 1, 24);
    notification(keyType, updated, 1);
    const int queue = sm->watcherInfos(".ima").readFd;
    calls.feedRead(queue, "short");
    dispatch();
    calls.feedReadError(queue, EIO);
    sm->handleKeyringWatch(".ima");
}

void Scenario::directoryEvent(std::uint32_t mask, std::uint32_t cookie, const std::string& name) {
    calls.feedRead(inotifyFd(), inotifyBytes({mask, cookie, name}));
}

void Scenario::hostileDirectoryEvents() {
    calls.feedRead(inotifyFd(), "short");
    directoryEvent(IN_CLOSE_WRITE, 0, "gone");
    directoryEvent(IN_MOVED_FROM, 7, "unknown");
    calls.feedReadError(inotifyFd(), EIO);
    sm->handleInotify(".ima");
}

void Scenario::shutdownWithFailures() {
    calls.failNth("close", 1, EIO);
    calls.failNth("close", 2, EIO);
    stop();
    keepOnly("");
    start(true);
    KeyringWatcherInfo info(".foreign");
    info.inotifyFd = open("/", O_RDONLY | O_CLOEXEC);
    sm->watcherInfosIs(info);
    calls.answerNext("close", 1, EIO);
    stop();
}

void Scenario::kernelLines() {
    calls.failNext("socket", EMFILE);
    integritySyslogSmFactory();
    calls.failNext("bind", EACCES);
    integritySyslogSmFactory();
    const auto syslog = integritySyslogSmFactory();
    calls.feedRead(syslog->socketFd(), appraisalLine);
    calls.feedReadError(syslog->socketFd(), EIO);
    syslog->handleLog();
}

} // namespace Vestrel::Tests
