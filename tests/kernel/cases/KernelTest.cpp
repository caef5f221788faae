// SPDX-License-Identifier: Apache-2.0
// The fixtures of the cases.
#include "tests/kernel/cases/KernelTest.h"

#include "keymodel/IntegrityConstants.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

using Clock = std::chrono::steady_clock;

const std::string fencePrefix = "fence-";
const std::string identifier = "a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3";

bool isFence(const std::string& text) {
    return text.find(fencePrefix) != std::string::npos;
}

} // namespace

std::string trust(const std::string& name) {
    const char* const given = std::getenv("VESTREL_TRUST");
    return std::string(given != nullptr ? given : "/trust") + "/" + name;
}

const CertificateAuthority& trustedAuthority() {
    static const auto authority = CertificateAuthority::load(trust("ca.pem"), trust("ca.key"));
    return authority;
}

const CertificateAuthority& unknownAuthority() {
    static const auto authority = CertificateAuthority::generate();
    return authority;
}

Bytes certificate(const std::string& name, std::uint8_t serialNumber) {
    CertificatePlan plan;
    plan.subject = {{"CN", name}};
    plan.serialNumber = {serialNumber};
    return trustedAuthority().issue(plan);
}

std::string description(const std::string& name) {
    return name + ": " + identifier;
}

std::string directory(const std::string& keyring) {
    return std::string(IntegrityConstants().keyringPathPrefix(keyring).view());
}

std::string file(const std::string& name, const std::string& keyring) {
    return directory(keyring) + "/" + name;
}

void write(const std::string& path, const Bytes& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
    file.close();
    if (file.fail()) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string refusal(const std::string& path, const std::string& cause, const std::string& keyring) {
    return "VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate " + path + " in keyring (" +
           keyring + "). " + cause + ".";
}

void emptyKeyringsAndDirectories() {
    Keyring::named(".ima").clear();
    Keyring::named(".secondary_trusted_keys").unlinkKeys();
    emptyProcessKeyring();
    fs::remove_all("/etc/keys");
}

testing::AssertionResult HostTest::eventually(const std::function<bool()>& condition) {
    const auto end = Clock::now() + deadline;
    while (!condition()) {
        if (Clock::now() > end) {
            return testing::AssertionFailure() << "not within " << deadline.count() << " s";
        }
        host_->step();
    }
    return testing::AssertionSuccess();
}

key_serial_t HostTest::recorded(const std::string& name, const std::string& keyring) {
    const Keyring ring = Keyring::named(keyring);
    key_serial_t key = 0;
    const auto arrived = eventually([&] {
        key = ring.keyOf(description(name));
        return key != 0 &&
               (traced("5 removeDuplicates: " + std::to_string(key) + ", " + keyring) ||
                traced("5 createWatcher: Processing existing key " + std::to_string(key)));
    });
    EXPECT_TRUE(arrived) << name << " in " << keyring;
    return arrived ? key : 0;
}

testing::AssertionResult HostTest::holdsOnly(Lines names, const std::string& keyring) {
    const Keyring ring = Keyring::named(keyring);
    for (std::string& name : names) {
        name = description(name);
    }
    std::ranges::sort(names);
    const auto result = eventually([&] { return ring.descriptions() == names; });
    return result ? result
                  : testing::AssertionResult(result)
                        << "; it holds " << testing::PrintToString(ring.descriptions());
}

void HostTest::fence(const std::string& keyring) {
    static int count = 0;
    const std::string name = fencePrefix + std::to_string(++count);
    write(file(name, keyring), certificate(name));
    recorded(name, keyring);
    fs::remove(file(name, keyring));
    const Keyring ring = Keyring::named(keyring);
    EXPECT_TRUE(eventually([&] { return ring.keyOf(description(name)) == 0; })) << name;
}

bool HostTest::traced(const std::string& line) {
    return std::ranges::count(traces(), line) != 0;
}

std::size_t HostTest::countTraced(const std::string& text) {
    return static_cast<std::size_t>(std::ranges::count_if(
        traces(), [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

Lines HostTest::failures() {
    Lines failures;
    std::ranges::copy_if(traces(), std::back_inserter(failures),
                         [](const std::string& line) { return line.starts_with("1 "); });
    return failures;
}

Lines HostTest::calls(const std::string& keyring) {
    // Such as "5 loadFile: .ima, /etc/keys/ima/a.der"
    const std::string before = "5 ";
    const std::string between = ": " + keyring + ", " + directory(keyring) + "/";
    Lines calls;
    for (const std::string& line : traces()) {
        const std::size_t at = line.find(between);
        if (at == std::string::npos || isFence(line)) {
            continue;
        }
        std::string operation = line.substr(before.size(), at - before.size());
        if (operation == "loadFile" || operation == "modifyFile" || operation == "removeFile") {
            calls.push_back(operation.append(" ").append(line, at + between.size()));
        }
    }
    return calls;
}

std::string LibraryTest::recordOf(key_serial_t key, const std::string& keyring) {
    const IntegrityKey* const record = library().keyColl(keyring).key(key);
    return record == nullptr ? std::string() : std::string(record->description.view());
}

std::unique_ptr<Host> hostOf(HostKind kind) {
    if (kind == HostKind::agent) {
        return std::make_unique<AgentProcess>();
    }
    return std::make_unique<LibraryHost>();
}

std::string nameOf(HostKind kind) {
    return kind == HostKind::agent ? "agent" : "library";
}

} // namespace Vestrel::Tests
