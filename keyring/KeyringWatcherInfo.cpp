// SPDX-License-Identifier: Apache-2.0
// Comparison, text form and type table of the watcher record.
#include "keyring/KeyringWatcherInfo.h"

#include "platform/zell/AttributeText.h"
#include "platform/zell/Errors.h"

namespace Vestrel {

namespace {

const KeyringWatcherInfo noInfo;

bool isSet(const void* info) {
    return static_cast<bool>(*static_cast<const KeyringWatcherInfo*>(info));
}

Orvo::Value construct(std::span<const Orvo::Value> arguments) {
    if (arguments.size() != 1 || !std::holds_alternative<Orvo::String>(arguments[0])) {
        throw Zell::AttributeError("Vestrel::KeyringWatcherInfo is constructed from keyringName");
    }
    return Zell::recordValue(KeyringWatcherInfo::typeData(),
                             KeyringWatcherInfo(std::get<Orvo::String>(arguments[0])));
}

const Zell::TypeRegistration registration(KeyringWatcherInfo::typeData());

} // namespace

KeyringWatcherInfo KeyringWatcherInfo::decoded(std::string_view text) {
    KeyringWatcherInfo info;
    Zell::AttributeCursor cursor(text);
    Zell::desAttrPre(cursor, typeData().name(), "keyringName", info.keyringName);
    Zell::desAttrIntra(cursor, "readFd", info.readFd);
    Zell::desAttrIntra(cursor, "writeFd", info.writeFd);
    Zell::desAttrIntra(cursor, "keyringId", info.keyringId);
    Zell::desAttrIntra(cursor, "keyringWatchId", info.keyringWatchId);
    Zell::desAttrIntra(cursor, "inotifyFd", info.inotifyFd);
    Zell::desAttrPost(cursor, "inotifyWatchId", info.inotifyWatchId);
    cursor.end();
    return info;
}

bool KeyringWatcherInfo::isEq(const void* a, const void* b) {
    const auto& left = *static_cast<const KeyringWatcherInfo*>(a);
    const auto& right = *static_cast<const KeyringWatcherInfo*>(b);
    return a == b ||
           (left.keyringName == right.keyringName && left.readFd == right.readFd &&
            left.writeFd == right.writeFd && left.keyringId == right.keyringId &&
            left.keyringWatchId == right.keyringWatchId && left.inotifyFd == right.inotifyFd &&
            left.inotifyWatchId == right.inotifyWatchId);
}

KeyringWatcherInfo::operator bool() const {
    return !isEq(this, &noInfo);
}

const Zell::TypeData& KeyringWatcherInfo::typeData() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::KeyringWatcherInfo"))
            .attributeIs(Zell::keyAttribute<&KeyringWatcherInfo::keyringName>("keyringName"))
            .attributeIs(Zell::attribute<&KeyringWatcherInfo::readFd>("readFd"))
            .attributeIs(Zell::attribute<&KeyringWatcherInfo::writeFd>("writeFd"))
            .attributeIs(Zell::attribute<&KeyringWatcherInfo::keyringId>("keyringId"))
            .attributeIs(Zell::attribute<&KeyringWatcherInfo::keyringWatchId>("keyringWatchId"))
            .attributeIs(Zell::attribute<&KeyringWatcherInfo::inotifyFd>("inotifyFd"))
            .attributeIs(Zell::attribute<&KeyringWatcherInfo::inotifyWatchId>("inotifyWatchId"))
            .constructIs(&construct)
            .wholeValueIs(&isSet, &KeyringWatcherInfo::isEq);
    return type;
}

std::ostream& operator<<(std::ostream& out, const KeyringWatcherInfo& info) {
    return Zell::writeRecord(out, KeyringWatcherInfo::typeData(), &info);
}

} // namespace Vestrel
