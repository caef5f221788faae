// SPDX-License-Identifier: Apache-2.0
// State machine tests with real certificates in the directories.
#pragma once

#include "keymodel/CertificateDescription.h"
#include "platform/pelbin/Pelbin.h"
#include "tests/support/CertificateMaker.h"
#include "tests/support/StateMachineTest.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

// The model of the key service describes keys as the kernel does.
class CertificateDirectories : public StateMachineTest {
protected:
    CertificateDirectories() {
        keys.describeWith([](KeyService::Bytes der) { return certificateDescription(der); });
    }

    // A certificate for that common name, in DER; made once for each name.
    static const Bytes& certificate(const std::string& name) {
        static const CertificateAuthority authority = CertificateAuthority::generate();
        static std::map<std::string, Bytes> made;
        Bytes& der = made[name];
        if (der.empty()) {
            CertificatePlan plan;
            plan.subject = {{"CN", name}};
            der = authority.issue(plan);
        }
        return der;
    }

    // The description of its key.
    static std::string described(const std::string& name) {
        return certificateDescription(certificate(name));
    }

    // Writes the certificate for `name` into the keyring's directory; returns the path.
    static std::string put(const std::string& fileName, const std::string& name,
                           const std::string& keyring = ".ima") {
        const Bytes& der = certificate(name);
        write(file(fileName, keyring), std::string(der.begin(), der.end()));
        return file(fileName, keyring);
    }

    // The trace lines of that operation.
    TraceLines tracesOf(std::string_view operation) const {
        TraceLines chosen = traces();
        std::erase_if(chosen, [&](const std::string& line) {
            return !std::string_view(line).substr(2).starts_with(std::string(operation) + ": ");
        });
        return chosen;
    }

    // The calls of libkeyutils of that name.
    std::vector<std::string> keyCalls(std::string_view name) const {
        std::vector<std::string> chosen = keys.calls();
        std::erase_if(chosen, [&](const std::string& call) {
            return !call.starts_with(std::string(name) + " ");
        });
        return chosen;
    }

    // Only this keyring is there; the others are not in the kernel.
    void keepOnly(std::string_view keyring) {
        for (const char* const name : IntegrityKeyringSm::keyringNames) {
            if (name != keyring) {
                keys.removeKeyring(name);
            }
        }
    }

    // Every open descriptor with what it is open on.
    static std::map<int, std::string> openDescriptors() {
        std::map<int, std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            const auto target = std::filesystem::read_symlink(entry.path(), gone).string();
            if (target.find("/proc/") == std::string::npos) { // the walk's own
                all[std::stoi(entry.path().filename())] = target;
            }
        }
        return all;
    }

    // How many objects of each type of entity or collection node are alive.
    static std::map<std::string, std::size_t> alive() {
        std::map<std::string, std::size_t> all;
        for (const Pelbin::Account& account : Pelbin::accounts()) {
            if (account.objects != 0) {
                all[account.typeName] = account.objects;
            }
        }
        return all;
    }
};

} // namespace Vestrel::Tests
