// SPDX-License-Identifier: Apache-2.0
// The start-up on the real keyrings: what is loaded, what is only mapped, what is left alone.
#include "tests/kernel/cases/KernelTest.h"

#include <sys/stat.h>

#include <filesystem>
#include <map>

namespace Vestrel::Tests {
namespace {

namespace fs = std::filesystem;

constexpr int manyFiles = 200;

class StartUp : public EitherHostTest {
protected:
    static void provide() { fs::create_directories(directory()); }

    static std::map<std::string, key_serial_t> serials() {
        std::map<std::string, key_serial_t> serials;
        for (const key_serial_t key : Keyring::named(".ima").keys()) {
            serials[descriptionOf(key)] = key;
        }
        return serials;
    }
};

TEST_P(StartUp, LoadsEveryCertificateAndNoneAgainAtTheNextStart) {
    provide();
    Lines names;
    for (int i = 0; i < manyFiles; ++i) {
        names.push_back("many-" + std::to_string(i));
        write(file(names.back()), certificate(names.back()));
    }
    start();
    EXPECT_TRUE(holdsOnly(names));
    EXPECT_EQ(messages(), Lines{});
    const auto before = serials();
    EXPECT_EQ(before.size(), static_cast<std::size_t>(manyFiles));
    stop();

    start();
    EXPECT_EQ(calls(), Lines{});
    EXPECT_EQ(serials(), before);
    EXPECT_TRUE(traced("5 createWatcher: Found 200 existing keys"));
    stop();
}

TEST_P(StartUp, RemembersTheFilesOfKeysThatWereThereAlready) {
    provide();
    write(file("known"), certificate("known"));
    const key_serial_t key = Keyring::named(".ima").add(certificate("known"));
    start();
    EXPECT_EQ(recorded("known"), key);
    EXPECT_EQ(calls(), Lines{});
    fs::remove(file("known"));
    EXPECT_TRUE(holdsOnly({}));
}

TEST_P(StartUp, LeavesAKeyWithoutAFileInItsKeyring) {
    const key_serial_t key = Keyring::named(".ima").add(certificate("orphan"));
    start();
    EXPECT_EQ(recorded("orphan"), key);
    fence();
    EXPECT_EQ(Keyring::named(".ima").keys(), std::vector<key_serial_t>{key});
}

TEST_P(StartUp, LoadsEachFileOfAMissingDescription) {
    provide();
    write(file("twin-1"), certificate("twin", 1));
    write(file("twin-2"), certificate("twin", 2));
    start();
    EXPECT_TRUE(holdsOnly({"twin"}));
    EXPECT_EQ(calls().size(), 2U);
    recorded("twin");
    fs::remove(file("twin-1"));
    fence();
    EXPECT_TRUE(holdsOnly({"twin"}));
    fs::remove(file("twin-2"));
    EXPECT_TRUE(holdsOnly({}));
}

TEST_P(StartUp, LoadsWhatASymbolicLinkPointsTo) {
    provide();
    fs::create_directories("/tmp/elsewhere");
    write("/tmp/elsewhere/target", certificate("target"));
    fs::create_symlink("/tmp/elsewhere/target", file("link"));
    fs::create_symlink("/tmp/elsewhere/nothing", file("dangling"));
    start();
    EXPECT_NE(recorded("target"), 0);
    EXPECT_EQ(calls(), Lines{"loadFile link"});
    fs::remove(file("link"));
    EXPECT_TRUE(holdsOnly({}));
    fs::remove_all("/tmp/elsewhere");
}

TEST_P(StartUp, SkipsWhatIsNoCertificateFile) {
    provide();
    fs::create_directories(file("folder.der"));
    ASSERT_EQ(mkfifo(file("pipe.der").c_str(), 0600), 0);
    write(file("empty.der"), {});
    write(file("text.der"), bytesOf("no certificate"));
    write(file("large.der"), Bytes(2048UL * 1024, 0x30));
    write(file("good.der"), certificate("good"));
    start();
    EXPECT_TRUE(holdsOnly({"good"}));
    EXPECT_EQ(calls(), Lines{"loadFile good.der"});
    EXPECT_EQ(messages(), Lines{});
}

TEST_P(StartUp, LoadsAFileWithATemporaryName) {
    // The suffix counts for changes only: at the start every certificate found is loaded.
    provide();
    write(file("half.integrity-tmp"), certificate("half"));
    start();
    EXPECT_NE(recorded("half"), 0);
}

VESTREL_WITH_EITHER_HOST(StartUp);

} // namespace
} // namespace Vestrel::Tests
