// SPDX-License-Identifier: Apache-2.0
// Compiles for a 32-bit target only when a record is six 32-bit words there.
#include "platform/zell/LogDescriptor.h"

static_assert(sizeof(void*) == 4);
static_assert(sizeof(Zell::LogDescriptor) == 24);
static_assert(sizeof(Zell::LogDescriptor[5]) == 120);
