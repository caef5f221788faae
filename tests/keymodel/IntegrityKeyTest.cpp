// SPDX-License-Identifier: Apache-2.0
// Tests the record of one kernel key.
#include "keymodel/IntegrityKey.h"

#include "platform/zell/Errors.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace Vestrel::Tests {

namespace {

const IntegrityKey sample{0x1234, "ACME: signing: a0a1", "asymmetric"};

bool equal(const IntegrityKey& a, const IntegrityKey& b) {
    EXPECT_EQ(IntegrityKey::isEq(&a, &b), IntegrityKey::isEq(&b, &a));
    return IntegrityKey::isEq(&a, &b);
}

std::string textOf(const IntegrityKey& key) {
    std::ostringstream out;
    out << key;
    return out.str();
}

TEST(IntegrityKey, DefaultMeansNoKey) {
    const IntegrityKey none;
    EXPECT_EQ(none.serial, 0);
    EXPECT_TRUE(none.description.empty());
    EXPECT_TRUE(none.type.empty());
    EXPECT_TRUE(equal(none, IntegrityKey()));
    EXPECT_FALSE(equal(none, sample));
}

TEST(IntegrityKey, IsEqualToACopyAndToItself) {
    const IntegrityKey copy = sample;
    EXPECT_TRUE(equal(copy, sample));
    EXPECT_TRUE(IntegrityKey::isEq(&sample, &sample));
}

TEST(IntegrityKey, DiffersInTheSerialAlone) {
    IntegrityKey other = sample;
    ++other.serial;
    EXPECT_FALSE(equal(other, sample));
}

TEST(IntegrityKey, DiffersInTheDescriptionAlone) {
    IntegrityKey other = sample;
    other.description = "ACME: Signing: a0a1";
    EXPECT_FALSE(equal(other, sample));
}

TEST(IntegrityKey, DiffersInTheTypeAlone) {
    IntegrityKey other = sample;
    other.type = "user";
    EXPECT_FALSE(equal(other, sample));
    IntegrityKey onlyType;
    onlyType.type = "asymmetric";
    EXPECT_FALSE(equal(onlyType, IntegrityKey()));
}

TEST(IntegrityKey, IsPrintedWithItsTypeAndAllAttributesInOrder) {
    EXPECT_EQ(textOf(sample), "Vestrel::IntegrityKey( serial=4660, "
                              "description=\"ACME: signing: a0a1\", type=\"asymmetric\" )");
    EXPECT_EQ(textOf({-1, "a\"b\n", ""}),
              "Vestrel::IntegrityKey( serial=-1, description=\"a\\x22b\\x0a\", type=\"\" )");
}

TEST(IntegrityKey, IsKnownToReflection) {
    const Zell::TypeData& type = IntegrityKey::typeData();
    EXPECT_EQ(&type, Zell::registeredType("Vestrel::IntegrityKey"));
    ASSERT_EQ(type.attributes().size(), 3U);
    EXPECT_STREQ(type.attributes()[0].name, "serial");
    EXPECT_STREQ(type.attributes()[1].name, "description");
    EXPECT_STREQ(type.attributes()[2].name, "type");
    EXPECT_EQ(std::get<std::int64_t>(type.value(&sample, 0)), 0x1234);
    EXPECT_EQ(std::get<Orvo::String>(type.value(&sample, 1)), sample.description);
    EXPECT_EQ(std::get<Orvo::String>(type.value(&sample, 2)), sample.type);
    const IntegrityKey none;
    EXPECT_TRUE(type.isSet(&sample));
    EXPECT_FALSE(type.isSet(&none));
    EXPECT_TRUE(type.isEq(&sample, &sample));
    EXPECT_FALSE(type.isEq(&sample, &none));
}

TEST(IntegrityKey, RefusesThatReflectionWritesItsSerialWhichIsItsKey) {
    const Zell::TypeData& type = IntegrityKey::typeData();
    IntegrityKey key = sample;
    EXPECT_THROW(type.valueIs(&key, 0, std::int64_t{1}), Zell::AttributeError);
    EXPECT_EQ(key.serial, sample.serial);
    type.valueIs(&key, 1, Orvo::String("other"));
    EXPECT_EQ(key.description, "other");
}

TEST(IntegrityKey, HasNoHash) {
    EXPECT_THROW(IntegrityKey::typeData().hash(&sample), Zell::NonHashableTypeError);
}

} // namespace

} // namespace Vestrel::Tests
