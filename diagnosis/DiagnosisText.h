// SPDX-License-Identifier: Apache-2.0
// A diagnosis in words, the same wherever it is told.
#pragma once

#include "diagnosis/Diagnosis.h"

#include <string>
#include <vector>

namespace Vestrel {

// The texts of the errors with which the kernel, or the agent's reading of the file, refuses.
std::vector<std::string> errorTexts(const FileContent& file, const Finding& finding);

// All that is to be said, without the file's name, on one line and without a full stop. Such as:
// refused (no-trusted-issuer, "Required key not available"): its issuer ...; it expired on ...
std::string textOf(const Diagnosis& diagnosis, const FileContent& file, const std::string& keyring);

} // namespace Vestrel
