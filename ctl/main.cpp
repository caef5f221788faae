// SPDX-License-Identifier: Apache-2.0
// vestrelctl: the operator's command.
#include "ctl/CommandLine.h"

#include <iostream>

int main(int argc, char** argv) {
    return Vestrel::run(argc, argv, std::cout, std::cerr);
}
