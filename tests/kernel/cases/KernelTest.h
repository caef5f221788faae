// SPDX-License-Identifier: Apache-2.0
// What the cases share: empty keyrings and directories, certificates, a host and waiting for it.
#pragma once

#include "tests/kernel/cases/AgentProcess.h"
#include "tests/kernel/cases/Host.h"
#include "tests/kernel/cases/Keyring.h"
#include "tests/kernel/cases/LibraryHost.h"
#include "tests/support/CertificateMaker.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

using Lines = std::vector<std::string>;

/// The path of a file of make-trust's.
std::string trust(const std::string& name);

/// The authority in .builtin_trusted_keys.
const CertificateAuthority& trustedAuthority();
/// One that no keyring knows.
const CertificateAuthority& unknownAuthority();

/// A certificate with this common name, signed by the trusted authority. Two of one name and of
/// different serial numbers have one description.
Bytes certificate(const std::string& name, std::uint8_t serialNumber = 1);
/// The description of its key.
std::string description(const std::string& name);

/// The directory of a keyring, and the path of a file in it.
std::string directory(const std::string& keyring = ".ima");
std::string file(const std::string& name, const std::string& keyring = ".ima");

/// Opens, writes and closes the file once. The directory must be there.
void write(const std::string& path, const Bytes& content);

/// Takes every key out of .ima, .secondary_trusted_keys and the process keyring, and removes
/// /etc/keys.
void emptyKeyringsAndDirectories();

/// Starts and ends with no keys in .ima and in the process keyring, only its links to other
/// keyrings in .secondary_trusted_keys, and without /etc/keys.
class KernelTest : public testing::Test {
protected:
    KernelTest() { emptyKeyringsAndDirectories(); }

    ~KernelTest() override { emptyKeyringsAndDirectories(); }
};

/// A case with a host, which is stopped in order at its end.
class HostTest : public KernelTest {
protected:
    explicit HostTest(std::unique_ptr<Host> host) : host_(std::move(host)) {}

    void TearDown() override { host_->stop(); }

    void start() { host_->start(); }

    void stop() { host_->stop(); }

    /// Whether the condition holds before the deadline; steps the host until then.
    testing::AssertionResult eventually(const std::function<bool()>& condition);

    /// Waits for the key of that certificate to be in the keyring and on record; 0 when it does not
    /// come.
    key_serial_t recorded(const std::string& name, const std::string& keyring = ".ima");
    /// Waits for the kernel's keyring to hold the keys of exactly these certificates.
    testing::AssertionResult holdsOnly(Lines names, const std::string& keyring = ".ima");
    /// Waits until every earlier change of the directory has been handled.
    void fence(const std::string& keyring = ".ima");

    const Lines& traces() { return host_->traces(); }

    const Lines& messages() { return host_->messages(); }

    bool traced(const std::string& line);
    /// How many trace lines contain this text.
    std::size_t countTraced(const std::string& text);
    /// The trace lines of level 1.
    Lines failures();
    /// The file operations on the keyring so far, such as "loadFile a.der", but for those of
    /// fence().
    Lines calls(const std::string& keyring = ".ima");

    std::unique_ptr<Host> host_;
};

class LibraryTest : public HostTest {
protected:
    LibraryTest() : HostTest(std::make_unique<LibraryHost>()) {}

    LibraryHost& library() { return static_cast<LibraryHost&>(*host_); }

    IntegrityKeyringSm& stateMachine() { return *library().stateMachine(); }

    /// The description on record for the serial; empty when there is no record.
    std::string recordOf(key_serial_t key, const std::string& keyring = ".ima");
};

class AgentTest : public HostTest {
protected:
    AgentTest() : HostTest(std::make_unique<AgentProcess>()) {}

    AgentProcess& agent() const { return static_cast<AgentProcess&>(*host_); }
};

/// What a case is told to run with.
enum class HostKind { agent, library };

std::unique_ptr<Host> hostOf(HostKind kind);
std::string nameOf(HostKind kind);

/// Runs a case once with each host.
class EitherHostTest : public HostTest, public testing::WithParamInterface<HostKind> {
protected:
    EitherHostTest() : HostTest(hostOf(GetParam())) {}
};

#define VESTREL_WITH_EITHER_HOST(suite)                                                            \
    INSTANTIATE_TEST_SUITE_P(                                                                      \
        With, suite, testing::Values(HostKind::agent, HostKind::library),                          \
        [](const testing::TestParamInfo<HostKind>& test) { return nameOf(test.param); })

/// The log message of a certificate that could not be loaded.
std::string refusal(const std::string& path, const std::string& cause,
                    const std::string& keyring = ".ima");

} // namespace Vestrel::Tests
