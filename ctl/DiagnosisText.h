// SPDX-License-Identifier: Apache-2.0
// A diagnosis as a row of a result, and as a line.
#pragma once

#include "ctl/ExitStatus.h"
#include "ctl/Output.h"
#include "diagnosis/Diagnosis.h"

#include <string>

namespace Vestrel {

Json rowOf(const FileContent& file, const std::string& keyring, const Diagnosis& diagnosis);

// Such as: signer.der: refused (no-trusted-issuer, "Required key not available"): its issuer ...
std::string lineOf(const Json& row);

ExitStatus statusOf(const Diagnosis& diagnosis);

} // namespace Vestrel
