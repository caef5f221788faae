// SPDX-License-Identifier: Apache-2.0
// The counters of kernel lines and their type table.
#include "syslog/KernelMessageCounters.h"

namespace Vestrel {

namespace {

const Zell::TypeRegistration registration(KernelMessageCounters::typeData());

} // namespace

KernelMessageCounters& KernelMessageCounters::counters() {
    static constinit KernelMessageCounters mine;
    return mine;
}

const Zell::TypeData& KernelMessageCounters::typeData() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::KernelMessageCounters"))
            .attributeIs(Zell::keyAttribute<&KernelMessageCounters::datagrams>("datagrams"))
            .attributeIs(Zell::keyAttribute<&KernelMessageCounters::matches>("matches"))
            .attributeIs(Zell::keyAttribute<&KernelMessageCounters::failures>("failures"));
    return type;
}

} // namespace Vestrel
