// SPDX-License-Identifier: Apache-2.0
// vestrel-bench-pieces [OPTIONS OF GOOGLE BENCHMARK]: what the pieces cost that both roads are made
// of. Needs neither root nor a kernel of its own.
#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"
#include "keymodel/IntegrityKeyColl.h"
#include "keyring/DirectoryEvent.h"
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringWatcherInfo.h"
#include "keyring/WatchNotification.h"
#include "logmsg/LogCall.h"
#include "logmsg/LogMessages.h"
#include "platform/duolog/Duolog.h"
#include "platform/zell/LogFacility.h"
#include "syslog/AppraisalPattern.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/support/CertificateMaker.h"

#include <benchmark/benchmark.h>

#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace Vestrel::Bench {

namespace {

using benchmark::State;

// The search for the appraisal record.

const Orvo::Regex& appraisalRegex() {
    static const Orvo::Regex regex = Orvo::Regex::compile(appraisalPattern);
    return regex;
}

void writtenOutSearch(State& state, const std::string& line) {
    Orvo::Regex::Groups groups;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(appraisalSearch(line, groups));
    }
}

void standardSearch(State& state, const std::string& line) {
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(appraisalRegex().searchByPattern(line));
    }
}

std::string ordinaryLine() {
    const auto& lines = Tests::ordinaryLines();
    const auto isOther = [](std::string_view line) {
        return line.find("op=appraise") == std::string_view::npos;
    };
    return std::string(*std::ranges::find_if(lines, isOther));
}

// Of the kind that takes the written-out search longest.
std::string hostileLine(std::size_t size) {
    const auto& kinds = Tests::hostileKinds();
    return std::ranges::find(kinds, "MixedBlanksAfterCause", &Tests::HostileKind::name)->line(size);
}

void registerSearches() {
    constexpr std::size_t bearable =
        Orvo::Regex::maxCheckedText; // for the standard matcher's stack
    const std::vector<std::pair<std::string, std::string>> lines{
        {"record", std::string(Tests::realLine)},
        {"ordinary line", ordinaryLine()},
        {"hostile line of " + std::to_string(bearable), hostileLine(bearable)}};
    for (const auto& [name, line] : lines) {
        benchmark::RegisterBenchmark(("search: " + name).c_str(), writtenOutSearch, line);
        benchmark::RegisterBenchmark(("search: " + name + ", standard matcher").c_str(),
                                     standardSearch, line);
    }
    benchmark::RegisterBenchmark("search: hostile line of 8191", writtenOutSearch,
                                 hostileLine(Tests::longestHostileLine));
}

// Log messages.

const Zell::LogLimit generous{std::numeric_limits<unsigned>::max(),
                              Orvo::Duration(std::chrono::seconds(1))};

void messageWithoutSink(State& state) {
    LogHandles handles;
    Zell::LogFacility::defaultLimitIs(generous);
    Zell::LogFacility::sinkIs(
        [](const Zell::LogMessage& message) { benchmark::DoNotOptimize(message.line.data()); });
    for ([[maybe_unused]] auto _ : state) {
        log(handles.VESTREL_INTEGRITY, "AUDIT_INTEGRITY_DATA", "missing-hash",
            "/usr/bin/some-program", "sh");
    }
}

// So many kinds of messages in turn, each with a bucket of its own.
void rateLimiter(State& state, unsigned burst, unsigned kinds) {
    Zell::LogHandle handle(logDescriptors.data(), Orvo::Duration(std::chrono::hours(1)), 1.0, burst,
                           0);
    unsigned kind = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(handle.okToLog(kind));
        kind = kind + 1 == kinds ? 0 : kind + 1;
    }
}

void registerMessages() {
    benchmark::RegisterBenchmark("message: formatted, no sink", messageWithoutSink);
    const unsigned all = std::numeric_limits<unsigned>::max();
    benchmark::RegisterBenchmark("rate limiter: allowed", rateLimiter, all, 1U);
    benchmark::RegisterBenchmark("rate limiter: refused", rateLimiter, 1U, 1U);
    benchmark::RegisterBenchmark("rate limiter: allowed, 1000 kinds in turn", rateLimiter, all,
                                 1000U);
}

// Certificates.

Tests::Bytes certificate(Tests::KeyKind key) {
    static const auto authority = Tests::CertificateAuthority::generate();
    Tests::CertificatePlan plan;
    plan.subject = {{"C", "NO"}, {"O", "Bench"}, {"CN", "Signer"}};
    plan.key = key;
    return authority.issue(plan);
}

void description(State& state, const Tests::Bytes& der) {
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(certificateDescription(der));
    }
}

void fromPem(State& state, const Tests::Bytes& content) {
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(derOf(content));
    }
}

void registerCertificates() {
    benchmark::RegisterBenchmark("description: certificate of a P-256 key", description,
                                 certificate(Tests::KeyKind::p256));
    const Tests::Bytes rsa = certificate(Tests::KeyKind::rsa2048);
    benchmark::RegisterBenchmark("description: certificate of an RSA-2048 key", description, rsa);
    benchmark::RegisterBenchmark("PEM to DER: certificate of an RSA-2048 key", fromPem,
                                 Tests::bytesOf(Tests::toPem(rsa)));
}

// What the kernel's queues deliver.

std::vector<char> directoryEvents(std::size_t most) {
    std::vector<char> bytes;
    inotify_event header{1, IN_MOVED_TO, 0, 32};
    for (; bytes.size() + sizeof header + header.len <= most; ++header.cookie) {
        std::array<char, 32> name{};
        std::snprintf(name.data(), name.size(), "signer-%u.der", header.cookie);
        const auto* const start = reinterpret_cast<const char*>(&header);
        bytes.insert(bytes.end(), start, start + sizeof header);
        bytes.insert(bytes.end(), name.begin(), name.end());
    }
    return bytes;
}

void directoryBuffer(State& state) {
    const std::vector<char> bytes = directoryEvents(4096); // what the state machine reads at once
    std::int64_t events = 0;
    for ([[maybe_unused]] auto _ : state) {
        std::span<const char> left(bytes);
        while (const auto event = DirectoryEvent::taken(left)) {
            benchmark::DoNotOptimize(event->name.data());
            ++events;
        }
    }
    state.SetItemsProcessed(events);
}

void watchNotification(State& state) {
    std::array<char, WatchNotification::size> bytes{1, 0, 0, 2, 16};
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(bytes.data());
        benchmark::DoNotOptimize(WatchNotification::decoded(bytes));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

void registerDecoders() {
    benchmark::RegisterBenchmark("inotify: decoding of a buffer of 4096", directoryBuffer);
    benchmark::RegisterBenchmark("watch queue: decoding of a notification", watchNotification);
}

// Collections.

std::vector<Orvo::String> paths(std::int64_t count) {
    std::vector<Orvo::String> paths;
    for (std::int64_t i = 0; i < count; ++i) {
        paths.emplace_back("/etc/keys/ima/signer-" + std::to_string(i) + ".der");
    }
    return paths;
}

void pathLookUp(State& state) {
    const auto files = paths(state.range(0));
    const auto keys = Orvo::makeNode<IntegrityKeyColl>();
    for (const Orvo::String& file : files) {
        keys->fileToDescriptionIs(file, "Bench: Signer: 00");
    }
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(keys->fileToDescription().find(files[next]));
        next = next + 1 == files.size() ? 0 : next + 1;
    }
}

void serialLookUp(State& state) {
    const auto count = static_cast<int>(state.range(0));
    const auto keys = Orvo::makeNode<IntegrityKeyColl>();
    for (int serial = 0; serial < count; ++serial) {
        keys->keyIs({serial, "Bench: Signer: 00", "asymmetric"});
    }
    int next = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(keys->key(next));
        next = next + 1 == count ? 0 : next + 1;
    }
}

void registerCollections() {
    for (const int count : {10, 1000, 100000}) {
        benchmark::RegisterBenchmark("HashMap2018: look-up of a path", pathLookUp)->Arg(count);
        benchmark::RegisterBenchmark("HashMap2018: look-up of a serial", serialLookUp)->Arg(count);
    }
}

// Traces and text forms.

Zell::TraceHandle& traceHandle() {
    static Zell::TraceHandle& handle = Zell::TraceHandle::traceHandleIs("Pieces");
    return handle;
}

void offTrace(State& state) {
    unsigned value = 0;
    for ([[maybe_unused]] auto _ : state) {
        DUOLOG(5, "value: ", value);
        benchmark::DoNotOptimize(++value);
    }
}

KeyringWatcherInfo watcherInfo() {
    KeyringWatcherInfo info(".secondary_trusted_keys");
    info.readFd = 7;
    info.writeFd = 8;
    info.keyringId = 123456789;
    info.keyringWatchId = 2;
    info.inotifyFd = 6;
    info.inotifyWatchId = 1;
    return info;
}

std::string textOf(const KeyringWatcherInfo& info) {
    std::ostringstream out;
    out << info;
    return std::move(out).str();
}

void watcherInfoToText(State& state) {
    const KeyringWatcherInfo info = watcherInfo();
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(textOf(info));
    }
}

void watcherInfoFromText(State& state) {
    const std::string text = textOf(watcherInfo());
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(KeyringWatcherInfo::decoded(text));
    }
}

void registerTexts() {
    benchmark::RegisterBenchmark("trace: off", offTrace);
    benchmark::RegisterBenchmark("KeyringWatcherInfo: to text", watcherInfoToText);
    benchmark::RegisterBenchmark("KeyringWatcherInfo: from text", watcherInfoFromText);
}

} // namespace

} // namespace Vestrel::Bench

int main(int argc, char** argv) {
    using namespace Vestrel::Bench;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    registerSearches();
    registerMessages();
    registerCertificates();
    registerDecoders();
    registerCollections();
    registerTexts();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
