// SPDX-License-Identifier: Apache-2.0
// Writes the journal's message catalog from the log message records.
//
//   vestrel-catalog-generate FILE
#include "logmsg/LogMessages.h"
#include "platform/zell/LogSinks.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

namespace {

std::string action(const char* recommended) {
    if (std::strcmp(recommended, Zell::contactSupportIfItPersists) == 0) {
        return "Contact support if the condition persists.";
    }
    if (std::strcmp(recommended, Zell::noActionIsRequired) == 0) {
        return "No action is required.";
    }
    return recommended;
}

// Some of the texts are sentences without their full stop.
std::string sentence(const std::string& text) {
    return text.ends_with('.') ? text : text + ".";
}

std::string entry(const Zell::LogDescriptor& record) {
    return "\n-- " + Zell::messageId(record.name) + "\nSubject: " + record.name +
           "\nDefined-By: VestrelSm\n\n" + sentence(record.explanation) + "\n\n" +
           sentence(action(record.recommendedAction)) + "\n";
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: vestrel-catalog-generate FILE\n", stderr);
        return 2;
    }
    std::ofstream catalog(argv[1], std::ios::trunc);
    catalog
        << "# SPDX-License-Identifier: Apache-2.0\n"
           "# What journalctl -x says of the messages. Made from their records at build time.\n";
    for (const Zell::LogDescriptor& record : Vestrel::logDescriptors) {
        catalog << entry(record);
    }
    catalog.close();
    if (!catalog) {
        std::fprintf(stderr, "vestrel-catalog-generate: cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
