// SPDX-License-Identifier: Apache-2.0
// Which date and time values the kernel reads in a certificate.
#pragma once

#include "keymodel/BerReader.h"

namespace Vestrel {

// Whether the element is a time that the kernel reads: a UTCTime or a GeneralizedTime in seconds
// and in UTC, each for the years it is meant for, from 1970 on. Past or future does not matter.
bool isCertificateTime(std::uint8_t tag, ByteSpan content);

} // namespace Vestrel
