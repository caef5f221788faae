// SPDX-License-Identifier: Apache-2.0
// A diagnosis as a row of a result, and as an exit status.
#pragma once

#include "ctl/ExitStatus.h"
#include "ctl/Output.h"
#include "diagnosis/Diagnosis.h"

#include <string>

namespace Vestrel {

Json rowOf(const FileContent& file, const std::string& keyring, const Diagnosis& diagnosis);

ExitStatus statusOf(const Diagnosis& diagnosis);

} // namespace Vestrel
