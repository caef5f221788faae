// SPDX-License-Identifier: Apache-2.0
// A host with a poll loop of its own: runs the keyring state machine until its standard input ends,
// then says how many keys each keyring holds.
#include <keyring/IntegrityKeyringSm.h>
#include <platform/zell/ActivityManager.h>
#include <platform/zell/LogSinks.h>
#include <poll.h>
#include <unistd.h>

#include <iostream>

int main() {
    Zell::LogFacility::sinkIs(Zell::stderrSink());
    const auto loop = Zell::ActivityFacility::activityManager();
    const auto keyrings = Orvo::makeNode<Vestrel::IntegrityKeyringColl>();
    const auto stateMachine = Vestrel::integrityKeyringSmFactory(keyrings);

    loop->dispatch(); // once before the first poll
    pollfd watched[] = {{loop->pollFd(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    while (watched[1].revents == 0 && poll(watched, 2, -1) > 0) {
        if (watched[0].revents != 0) {
            loop->dispatch();
        }
    }
    for (auto keyring = keyrings->keyring().iterator(); keyring; ++keyring) {
        std::cout << keyring.key() << ": " << (*keyring)->key().size() << " keys\n";
    }
}
