// SPDX-License-Identifier: Apache-2.0
// What an operator should know of a certificate although the kernel does not mind it.
#pragma once

#include "keymodel/CertificateFields.h"

#include <ctime>
#include <string>
#include <vector>

namespace Vestrel {

// Sentences without their full stops. Whether it ignores what the key is for depends on the kernel.
std::vector<std::string> remarks(const CertificateFields& certificate, std::time_t now,
                                 bool isUsageIgnored);

// Whether the certificate says that its key signs data and no other certificates, which kernels
// newer than 6.1 may ask of a key for .ima.
bool isForSigningOnly(const CertificateFields& certificate);

} // namespace Vestrel
