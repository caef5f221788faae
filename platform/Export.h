// SPDX-License-Identifier: Apache-2.0
// Marks what a shared library of the project offers to its users; everything else is hidden.
#pragma once

#define VESTREL_EXPORT __attribute__((visibility("default")))
