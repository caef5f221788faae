// SPDX-License-Identifier: Apache-2.0
// The counters of the keyrings and their type table.
#include "keyring/KeyringCounters.h"

#include "platform/zell/UtcTime.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace Vestrel {

namespace {

struct State {
    std::map<std::string, KeyringCounters, std::less<>> counters;
    KeyringCounters::DoubtObserver observer;
};

// Never destroyed: state machines may go while static objects do.
State& state() {
    static State* const mine = new State;
    return *mine;
}

template <class Owner, std::string Owner::*Member>
constexpr Zell::AttributeData text(const char* name) {
    return {name,
            [](const void* object) -> Orvo::Value {
                return Orvo::String(static_cast<const Owner*>(object)->*Member);
            },
            nullptr};
}

const Zell::TypeData& refusalType() {
    using Refusal = KeyringCounters::Refusal;
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::KeyringCounters::Refusal"))
            .attributeIs(text<Refusal, &Refusal::reason>("reason"))
            .attributeIs(Zell::keyAttribute<&Refusal::number>("number"));
    return type;
}

void forEachRefused(const void* object, const Zell::CollectionData::Visitor& visitor) {
    for (const auto& [file, refusal] : static_cast<const KeyringCounters*>(object)->refused) {
        visitor(file, Zell::recordValue(refusalType(), refusal));
    }
}

void lastFailureIs(KeyringCounters& counters, std::string text) {
    counters.lastFailureTime = Zell::utcText(std::chrono::system_clock::now());
    counters.lastFailure = std::move(text);
}

const Zell::TypeRegistration registration(KeyringCounters::typeData());
const Zell::TypeRegistration refusalRegistration(refusalType());

} // namespace

void KeyringCounters::refusalIs(std::string_view file, std::string_view reason) {
    ++refusals;
    const std::string path(file);
    lastFailureIs(*this, path + ": " + std::string(reason));
    if (refused.size() < maxRefusedFiles || refused.contains(path)) {
        refused[path] = {std::string(reason), refusals};
    }
}

void KeyringCounters::loadIs(std::string_view file) {
    ++loads;
    goneIs(file);
}

void KeyringCounters::goneIs(std::string_view file) {
    if (const auto known = refused.find(file); known != refused.end()) {
        refused.erase(known);
    }
}

void KeyringCounters::failureIs(std::string_view what, int error) {
    lastFailureIs(*this, std::string(what) + ": " + std::strerror(error));
    errno = error;
}

void KeyringCounters::doubtIs(std::int64_t KeyringCounters::*counter) {
    ++(this->*counter);
    if (state().observer) {
        state().observer();
    }
}

KeyringCounters& KeyringCounters::of(std::string_view keyringName) {
    auto& all = state().counters;
    const auto known = all.find(keyringName);
    return known != all.end() ? known->second : all[std::string(keyringName)];
}

void KeyringCounters::forEach(const Visitor& visitor) {
    for (const auto& [name, counters] : state().counters) {
        visitor(name, counters);
    }
}

void KeyringCounters::refusedForget() {
    for (auto& [name, counters] : state().counters) {
        counters.refused.clear();
    }
}

void KeyringCounters::doubtObserverIs(DoubtObserver observer) {
    state().observer = std::move(observer);
}

const Zell::TypeData& KeyringCounters::typeData() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::KeyringCounters"))
            .attributeIs(Zell::keyAttribute<&KeyringCounters::loads>("loads"))
            .attributeIs(Zell::keyAttribute<&KeyringCounters::refusals>("refusals"))
            .attributeIs(Zell::keyAttribute<&KeyringCounters::unlinks>("unlinks"))
            .attributeIs(Zell::keyAttribute<&KeyringCounters::notifications>("notifications"))
            .attributeIs(
                Zell::keyAttribute<&KeyringCounters::notificationsLost>("notificationsLost"))
            .attributeIs(Zell::keyAttribute<&KeyringCounters::overflows>("overflows"))
            .attributeIs(Zell::keyAttribute<&KeyringCounters::upsets>("upsets"))
            .attributeIs(
                text<KeyringCounters, &KeyringCounters::lastFailureTime>("lastFailureTime"))
            .attributeIs(text<KeyringCounters, &KeyringCounters::lastFailure>("lastFailure"))
            .collectionIs({"refused", &forEachRefused});
    return type;
}

} // namespace Vestrel
