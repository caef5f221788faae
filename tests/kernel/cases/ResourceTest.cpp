// SPDX-License-Identifier: Apache-2.0
// What a state machine takes, it gives back.
#include "platform/pelbin/Pelbin.h"
#include "tests/kernel/cases/KernelTest.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace Vestrel::Tests {
namespace {

namespace fs = std::filesystem;

// The open descriptors and what they are; the one that reads the directory is the same each time.
std::set<std::string> descriptors() {
    std::set<std::string> descriptors;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = fs::read_symlink(entry.path(), gone).string();
        descriptors.insert(entry.path().filename().string() + " " + target);
    }
    return descriptors;
}

// Objects and bytes of every type that has any. Only texts of the libraries' own static objects
// live beside a state machine.
using Alive = std::map<std::string, std::pair<std::size_t, std::size_t>>;

Alive alive() {
    Alive alive;
    for (const Pelbin::Account& account : Pelbin::accounts()) {
        if (account.objects != 0 || account.bytes != 0) {
            alive[account.typeName] = {account.objects, account.bytes};
        }
    }
    return alive;
}

class Resources : public LibraryTest {
protected:
    // Something of everything.
    void work() {
        start();
        write(file("a"), certificate("twin", 1));
        write(file("b"), certificate("twin", 2));
        write(file("c"), certificate("third"));
        write(file("d"), bytesOf("no certificate"));
        recorded("third");
        fs::rename(file("c"), file("renamed"));
        write(file("a"), certificate("other"));
        fs::remove(file("b"));
        fence();
    }
};

TEST_F(Resources, DescriptorsAreClosedAtTheEnd) {
    trustedAuthority();
    const auto before = descriptors();
    work();
    EXPECT_GE(descriptors().size(), before.size() + 12); // three for each keyring
    stop();
    EXPECT_EQ(descriptors(), before);
}

TEST_F(Resources, MemoryIsGivenBackAtTheEnd) {
    const auto before = alive();
    for (const auto& [typeName, amount] : before) {
        EXPECT_EQ(typeName, "Orvo::String") << amount.first << " alive";
    }
    work();
    EXPECT_GT(alive().size(), before.size());
    stop();
    EXPECT_EQ(alive(), before);
}

TEST_F(Resources, AreTheSameAfterManyLives) {
    work();
    stop();
    const auto descriptorsBefore = descriptors();
    const auto before = alive();
    for (int i = 0; i < 10; ++i) {
        start();
        fence();
        stop();
    }
    EXPECT_EQ(descriptors(), descriptorsBefore);
    EXPECT_EQ(alive(), before);
}

} // namespace
} // namespace Vestrel::Tests
