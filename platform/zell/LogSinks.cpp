// SPDX-License-Identifier: Apache-2.0
// Journal, syslog and stderr as places for log messages.
#include "platform/zell/LogSinks.h"

#include "platform/zell/OneLine.h"
#include "platform/zell/StderrLines.h"

// The source line that would be sent along is always the one in this file.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <vector>

namespace Zell {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::string_view hexDigits = "0123456789abcdef";
constexpr const char* journalSocket = "/run/systemd/journal/socket";
constexpr const char* syslogSocket = "/dev/log";

bool exists(const char* path) {
    return access(path, F_OK) == 0;
}

void appendHex(std::string& text, unsigned char byte) {
    text += hexDigits[byte >> 4];
    text += hexDigits[byte & 0xf];
}

std::vector<std::string> journalFields(const LogMessage& message) {
    std::vector<std::string> fields{
        "MESSAGE=" + logLine(message),
        "MESSAGE_ID=" + messageId(message.descriptor.name),
        "PRIORITY=" + std::to_string(message.descriptor.severity),
        std::string("LOG_NAME=") + message.descriptor.name,
    };
    for (std::size_t i = 0; i < message.arguments.size(); ++i) {
        fields.push_back("LOG_ARG_" + std::to_string(i + 1) + "=" +
                         std::string(message.arguments[i].view()));
    }
    return fields;
}

void toJournal(const LogMessage& message) {
    std::vector<std::string> fields = journalFields(message);
    std::vector<iovec> vectors;
    vectors.reserve(fields.size());
    for (std::string& field : fields) {
        vectors.push_back({field.data(), field.size()});
    }
    sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size()));
}

void toSyslog(const LogMessage& message) {
    syslog(LOG_DAEMON | message.descriptor.severity, "%s", logLine(message).c_str());
}

void toStderr(const LogMessage& message) {
    if (isOneLine(message.withoutEnd())) {
        StderrLines::put(message.line);
    } else {
        StderrLines::put(logLine(message) + '\n');
    }
}

} // namespace

std::string logLine(const LogMessage& message) {
    return oneLine(message.withoutEnd());
}

std::string messageId(std::string_view name) {
    constexpr Wide prime = (Wide{1} << 88) + 0x13b; // FNV-1a of 128 bits
    Wide hash = (Wide{0x6c62272e07bb0142} << 64) + 0x62b821756295c58d;
    for (const char c : name) {
        hash = (hash ^ static_cast<unsigned char>(c)) * prime;
    }
    std::string id;
    for (int shift = 120; shift >= 0; shift -= 8) {
        appendHex(id, static_cast<unsigned char>(hash >> shift));
    }
    return id;
}

LogSink journalSink() {
    return toJournal;
}

LogSink syslogSink() {
    return toSyslog;
}

LogSink stderrSink() {
    return toStderr;
}

LogSink journalOrSyslogSink() {
    return [](const LogMessage& message) {
        exists(journalSocket) ? toJournal(message) : toSyslog(message);
    };
}

LogSink automaticSink() {
    return [](const LogMessage& message) {
        if (exists(journalSocket)) {
            toJournal(message);
        } else if (exists(syslogSocket)) {
            toSyslog(message);
        } else {
            toStderr(message);
        }
    };
}

} // namespace Zell
