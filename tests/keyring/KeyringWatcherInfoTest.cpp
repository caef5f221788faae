// SPDX-License-Identifier: Apache-2.0
// Tests the record kept of each watched keyring.
#include "keyring/KeyringWatcherInfo.h"

#include "platform/zell/Errors.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

namespace Vestrel::Tests {

namespace {

constexpr std::array<S32 KeyringWatcherInfo::*, 6> numbers{
    &KeyringWatcherInfo::readFd,    &KeyringWatcherInfo::writeFd,
    &KeyringWatcherInfo::keyringId, &KeyringWatcherInfo::keyringWatchId,
    &KeyringWatcherInfo::inotifyFd, &KeyringWatcherInfo::inotifyWatchId};

constexpr std::array<const char*, 7> attributeNames{"keyringName",   "readFd",         "writeFd",
                                                    "keyringId",     "keyringWatchId", "inotifyFd",
                                                    "inotifyWatchId"};

KeyringWatcherInfo sample() {
    KeyringWatcherInfo info(".ima");
    S32 value = 11;
    for (const auto number : numbers) {
        info.*number = value++;
    }
    return info;
}

constexpr const char* sampleText =
    "Vestrel::KeyringWatcherInfo( keyringName=\".ima\", readFd=11, writeFd=12, keyringId=13, "
    "keyringWatchId=14, inotifyFd=15, inotifyWatchId=16 )";

bool equal(const KeyringWatcherInfo& a, const KeyringWatcherInfo& b) {
    EXPECT_EQ(KeyringWatcherInfo::isEq(&a, &b), KeyringWatcherInfo::isEq(&b, &a));
    return KeyringWatcherInfo::isEq(&a, &b);
}

std::string encoded(const KeyringWatcherInfo& info) {
    std::ostringstream out;
    out << info;
    return out.str();
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

TEST(KeyringWatcherInfo, DefaultIsEmptyAndFalse) {
    const KeyringWatcherInfo info;
    EXPECT_TRUE(info.keyringName.empty());
    for (const auto number : numbers) {
        EXPECT_EQ(info.*number, 0);
    }
    EXPECT_FALSE(info);
    EXPECT_TRUE(equal(info, KeyringWatcherInfo()));
}

TEST(KeyringWatcherInfo, MadeFromANameAloneIsTrueThoughEveryNumberIsZero) {
    const KeyringWatcherInfo info(".ima");
    EXPECT_EQ(info.keyringName, ".ima");
    for (const auto number : numbers) {
        EXPECT_EQ(info.*number, 0);
    }
    EXPECT_TRUE(info);
}

TEST(KeyringWatcherInfo, MadeFromTheEmptyNameIsFalse) {
    EXPECT_FALSE(KeyringWatcherInfo(""));
}

TEST(KeyringWatcherInfo, IsTrueForAnyOneNumberAlone) {
    for (const auto number : numbers) {
        KeyringWatcherInfo info;
        info.*number = -1;
        EXPECT_TRUE(info);
    }
}

TEST(KeyringWatcherInfo, ComparesEveryAttribute) {
    EXPECT_TRUE(equal(sample(), sample()));
    const KeyringWatcherInfo info = sample();
    EXPECT_TRUE(KeyringWatcherInfo::isEq(&info, &info));
    for (const auto number : numbers) {
        KeyringWatcherInfo other = sample();
        ++(other.*number);
        EXPECT_FALSE(equal(sample(), other));
    }
    KeyringWatcherInfo other = sample();
    other.keyringName = ".IMA";
    EXPECT_FALSE(equal(sample(), other));
}

TEST(KeyringWatcherInfo, RecordsThatDifferOnlyInInotifyWatchIdAreNotEqual) {
    KeyringWatcherInfo a(".ima");
    KeyringWatcherInfo b(".ima");
    b.inotifyWatchId = 1;
    EXPECT_FALSE(equal(a, b));
    a.inotifyWatchId = 1;
    EXPECT_TRUE(equal(a, b));
}

TEST(KeyringWatcherInfo, CopiesAndMovesMemberByMember) {
    const KeyringWatcherInfo original = sample();
    KeyringWatcherInfo copy = original;
    EXPECT_TRUE(equal(copy, original));
    const KeyringWatcherInfo moved = std::move(copy);
    EXPECT_TRUE(equal(moved, original));
    KeyringWatcherInfo assigned;
    assigned = moved;
    EXPECT_TRUE(equal(assigned, original));
}

TEST(KeyringWatcherInfo, OwnsNoDescriptor) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    {
        KeyringWatcherInfo info(".ima");
        info.readFd = ends[0];
        info.writeFd = ends[1];
        info.inotifyFd = ends[1];
        info = KeyringWatcherInfo(".machine");
        info.readFd = ends[0];
    }
    for (const int end : ends) {
        EXPECT_NE(fcntl(end, F_GETFD), -1);
        close(end);
    }
}

TEST(KeyringWatcherInfo, IsPrintedWithItsTypeAndAllAttributesInOrder) {
    EXPECT_EQ(encoded(sample()), sampleText);
}

TEST(KeyringWatcherInfo, IsDecodedFromItsText) {
    EXPECT_TRUE(equal(KeyringWatcherInfo::decoded(sampleText), sample()));
}

TEST(KeyringWatcherInfo, SurvivesTheWayThroughText) {
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte) {
        everyByte.push_back(static_cast<char>(byte));
    }
    for (const std::string& name :
         {std::string(), std::string(".a \"b\" \\x41, readFd=1 )"), everyByte}) {
        KeyringWatcherInfo info{Orvo::String(name)};
        info.readFd = std::numeric_limits<S32>::min();
        info.inotifyWatchId = std::numeric_limits<S32>::max();
        EXPECT_TRUE(equal(KeyringWatcherInfo::decoded(encoded(info)), info)) << encoded(info);
    }
    EXPECT_TRUE(equal(KeyringWatcherInfo::decoded(encoded({})), {}));
}

TEST(KeyringWatcherInfo, RefusesTextWithAnythingBehindTheLastValue) {
    const std::string text = sampleText;
    for (const char* const behind : {" ", "\n", "x", ", more=1", " )"}) {
        EXPECT_THROW(KeyringWatcherInfo::decoded(text + behind), Zell::AttributeTextError);
    }
    EXPECT_THROW(KeyringWatcherInfo::decoded(replaced(text, "=16", "=16x")),
                 Zell::AttributeTextError);
}

TEST(KeyringWatcherInfo, RefusesEveryBeginningOfItsText) {
    const std::string_view text = sampleText;
    for (std::size_t size = 0; size < text.size(); ++size) {
        EXPECT_THROW(KeyringWatcherInfo::decoded(text.substr(0, size)), Zell::AttributeTextError)
            << size;
    }
}

TEST(KeyringWatcherInfo, RefusesTextOfAnotherTypeOrWithOtherAttributes) {
    const std::string text = sampleText;
    EXPECT_THROW(KeyringWatcherInfo::decoded(replaced(text, "WatcherInfo", "Watcher")),
                 Zell::AttributeTextError);
    for (const char* const name : attributeNames) {
        EXPECT_THROW(KeyringWatcherInfo::decoded(replaced(text, std::string(name) + "=", "other=")),
                     Zell::AttributeTextError)
            << name;
    }
    EXPECT_THROW(KeyringWatcherInfo::decoded(
                     replaced(text, "readFd=11, writeFd=12", "writeFd=12, readFd=11")),
                 Zell::AttributeTextError);
    EXPECT_THROW(KeyringWatcherInfo::decoded(replaced(text, "=13", "=2147483648")),
                 Zell::AttributeTextError);
    EXPECT_THROW(KeyringWatcherInfo::decoded(replaced(text, "=13", "=")), Zell::AttributeTextError);
    EXPECT_THROW(KeyringWatcherInfo::decoded(replaced(text, "\".ima\"", ".ima")),
                 Zell::AttributeTextError);
}

TEST(KeyringWatcherInfoReflection, KnowsTheTypeByItsName) {
    const Zell::TypeData& type = KeyringWatcherInfo::typeData();
    EXPECT_STREQ(type.name(), "Vestrel::KeyringWatcherInfo");
    EXPECT_EQ(&type, Zell::registeredType("Vestrel::KeyringWatcherInfo"));
    ASSERT_EQ(type.attributes().size(), attributeNames.size());
    for (std::size_t i = 0; i < attributeNames.size(); ++i) {
        EXPECT_STREQ(type.attributes()[i].name, attributeNames[i]);
    }
}

TEST(KeyringWatcherInfoReflection, ReadsAndWritesEachNumberByItsIndex) {
    const Zell::TypeData& type = KeyringWatcherInfo::typeData();
    KeyringWatcherInfo info = sample();
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        EXPECT_EQ(std::get<std::int64_t>(type.value(&info, i + 1)),
                  static_cast<std::int64_t>(11 + i));
        type.valueIs(&info, i + 1, std::int64_t{-7});
        EXPECT_EQ(info.*numbers[i], -7);
    }
    EXPECT_EQ(info.keyringName, ".ima");
}

TEST(KeyringWatcherInfoReflection, ReadsTheNameAndRefusesToWriteIt) {
    const Zell::TypeData& type = KeyringWatcherInfo::typeData();
    KeyringWatcherInfo info = sample();
    EXPECT_EQ(std::get<Orvo::String>(type.value(&info, 0)), ".ima");
    EXPECT_THROW(type.valueIs(&info, 0, Orvo::String(".machine")), Zell::AttributeError);
    EXPECT_TRUE(equal(info, sample()));
}

TEST(KeyringWatcherInfoReflection, RefusesAnIndexBeyondTheLast) {
    KeyringWatcherInfo info;
    EXPECT_THROW(KeyringWatcherInfo::typeData().value(&info, 7), Zell::AttributeError);
    EXPECT_THROW(KeyringWatcherInfo::typeData().valueIs(&info, 7, std::int64_t{1}),
                 Zell::AttributeError);
}

TEST(KeyringWatcherInfoReflection, OffersTheIsSetAndTheEqualityTest) {
    const Zell::TypeData& type = KeyringWatcherInfo::typeData();
    const KeyringWatcherInfo none;
    const KeyringWatcherInfo info = sample();
    const KeyringWatcherInfo same = sample();
    EXPECT_FALSE(type.isSet(&none));
    EXPECT_TRUE(type.isSet(&info));
    EXPECT_TRUE(type.isEq(&info, &info));
    EXPECT_TRUE(type.isEq(&info, &same));
    EXPECT_FALSE(type.isEq(&info, &none));
}

TEST(KeyringWatcherInfoReflection, HasNoHash) {
    const KeyringWatcherInfo info = sample();
    EXPECT_THROW(KeyringWatcherInfo::typeData().hash(&info), Zell::NonHashableTypeError);
}

TEST(KeyringWatcherInfoReflection, ConstructsFromTheNameAlone) {
    const Zell::TypeData& type = KeyringWatcherInfo::typeData();
    const Orvo::Value name(Orvo::String(".ima"));
    const Orvo::Value made = type.construct({&name, 1});
    const auto& record = std::get<Orvo::Record>(made);
    EXPECT_EQ(record.type, &type);
    EXPECT_TRUE(equal(*static_cast<const KeyringWatcherInfo*>(record.object.get()),
                      KeyringWatcherInfo(".ima")));
}

TEST(KeyringWatcherInfoReflection, RefusesOtherConstructorArguments) {
    const Zell::TypeData& type = KeyringWatcherInfo::typeData();
    const std::array<Orvo::Value, 2> two{Orvo::String(".ima"), std::int64_t{1}};
    try {
        type.construct({});
        ADD_FAILURE() << "constructed";
    } catch (const Zell::AttributeError& refusal) {
        EXPECT_STREQ(refusal.what(), "Vestrel::KeyringWatcherInfo is constructed from keyringName");
    }
    EXPECT_THROW(type.construct(two), Zell::AttributeError);
    EXPECT_THROW(type.construct({&two[1], 1}), Zell::AttributeError);
}

} // namespace

} // namespace Vestrel::Tests
