// SPDX-License-Identifier: Apache-2.0
// Writes the journal's message catalog from the log message records.
//
//   vestrel-catalog-generate FILE
#include "logmsg/Catalogue.h"
#include "logmsg/LogMessages.h"
#include "logmsg/RecordText.h"
#include "platform/zell/LogSinks.h"

#include <cstdio>
#include <fstream>
#include <string>

namespace {

std::string entry(const Zell::LogDescriptor& record) {
    return "\n-- " + Zell::messageId(record.name) + "\nSubject: " + record.name +
           "\nDefined-By: VestrelSm\n\n" + Vestrel::explanationText(record) + "\n\n" +
           Vestrel::actionText(record) + "\n";
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
    for (const Zell::LogDescriptor& record : Vestrel::catalogue(Vestrel::logDescriptors)) {
        catalog << entry(record);
    }
    catalog.close();
    if (!catalog) {
        std::fprintf(stderr, "vestrel-catalog-generate: cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
