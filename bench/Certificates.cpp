// SPDX-License-Identifier: Apache-2.0
// Certificates that differ in name and key identifier.
#include "bench/Certificates.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace Vestrel::Bench {

namespace {

Tests::CertificatePlan plan(std::size_t number) {
    Tests::CertificatePlan plan;
    plan.subject = {{"O", "Bench"}, {"CN", "Signer " + std::to_string(number)}};
    for (std::size_t i = 0; i < sizeof(std::uint32_t); ++i) {
        plan.keyIdentifierBytes[i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
    return plan;
}

} // namespace

const std::vector<Tests::Bytes>& Certificates::first(std::size_t count) {
    while (made_.size() < count) {
        made_.push_back(authority_.issue(plan(made_.size())));
    }
    return made_;
}

void Certificates::write(const std::string& directory, std::size_t count) {
    std::filesystem::remove_all(directory);
    std::filesystem::create_directories(directory);
    const auto& certificates = first(count);
    for (std::size_t i = 0; i < count; ++i) {
        writeFile(certificatePath(directory, i), certificates[i]);
    }
}

std::string certificatePath(const std::string& directory, std::size_t number) {
    return directory + "/" + std::to_string(number) + ".der";
}

void writeFile(const std::string& path, const Tests::Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (out.fail()) {
        throw std::runtime_error("cannot write " + path);
    }
}

} // namespace Vestrel::Bench
