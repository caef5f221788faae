// SPDX-License-Identifier: Apache-2.0
// Tests of type tables, their use through reflection, and the registry of types.
#include "platform/zell/TypeData.h"

#include "platform/zell/Errors.h"
#include "platform/zell/FileDescriptor.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>

namespace Vestrel::Tests {

namespace {

using Orvo::String;
using Orvo::Value;
using Zell::AttributeError;
using Zell::TypeData;

struct Person {
    String name;
    std::int32_t age = 0;
};

Value constructPerson(std::span<const Value> arguments);

const TypeData& personType() {
    static const TypeData& type =
        (*new TypeData("Person"))
            .attributeIs(Zell::keyAttribute<&Person::name>("name"))
            .attributeIs(Zell::attribute<&Person::age>("age"))
            .collectionIs({"letters",
                           [](const void* object, const Zell::CollectionData::Visitor& visitor) {
                               for (const char c :
                                    static_cast<const Person*>(object)->name.view()) {
                                   visitor(std::string(1, c), std::int64_t{c});
                               }
                           }})
            .operationsAre({"ageIs"})
            .constructIs(constructPerson)
            .wholeValueIs(
                [](const void* object) {
                    return !static_cast<const Person*>(object)->name.empty();
                },
                [](const void* a, const void* b) {
                    return static_cast<const Person*>(a)->name ==
                           static_cast<const Person*>(b)->name;
                });
    return type;
}

Value constructPerson(std::span<const Value> arguments) {
    if (arguments.size() != 1) {
        throw AttributeError("Person takes its name");
    }
    return Zell::recordValue(personType(), Person{std::get<String>(arguments[0]), 0});
}

class TypeDataTest : public testing::Test {
protected:
    Person ann{"Ann", 42};
    const TypeData& type = personType();
    const TypeData bare{"Bare"};
};

TEST_F(TypeDataTest, ReadsAttributesByTheirIndex) {
    ASSERT_EQ(type.attributes().size(), 2U);
    EXPECT_STREQ(type.attributes()[0].name, "name");
    EXPECT_EQ(type.value(&ann, 0), Value(String("Ann")));
    EXPECT_EQ(type.value(&ann, 1), Value(std::int64_t{42}));
    EXPECT_THROW(type.value(&ann, 2), AttributeError);
    EXPECT_THROW(bare.value(&ann, 0), AttributeError);
}

TEST_F(TypeDataTest, WritesWhatMayBeWritten) {
    type.valueIs(&ann, 1, std::int64_t{-1});
    EXPECT_EQ(ann.age, -1);
    EXPECT_THROW(type.valueIs(&ann, 2, std::int64_t{1}), AttributeError);
}

TEST_F(TypeDataTest, RefusesToWriteAKey) {
    EXPECT_THROW(type.valueIs(&ann, 0, String("Bob")), AttributeError);
    EXPECT_EQ(ann.name, String("Ann"));
}

TEST_F(TypeDataTest, HasNoHash) {
    EXPECT_THROW(type.hash(&ann), Zell::NonHashableTypeError);
    EXPECT_THROW(bare.hash(&ann), Zell::NonHashableTypeError);
}

TEST_F(TypeDataTest, ConstructsFromArgumentsThatFit) {
    const std::array<Value, 1> arguments{String("Bob")};
    const Value made = type.construct(arguments);
    const auto& record = std::get<Orvo::Record>(made);
    EXPECT_EQ(record.type, &type);
    EXPECT_EQ(static_cast<const Person*>(record.object.get())->name, String("Bob"));
    EXPECT_THROW(type.construct({}), AttributeError);
    EXPECT_THROW(bare.construct(arguments), AttributeError);
}

TEST_F(TypeDataTest, TestsWholeValues) {
    const Person other{"Ann", 1};
    const Person nobody;
    EXPECT_TRUE(type.isSet(&ann));
    EXPECT_FALSE(type.isSet(&nobody));
    EXPECT_TRUE(type.isEq(&ann, &other));
    EXPECT_TRUE(type.isEq(&ann, &ann));
    EXPECT_FALSE(type.isEq(&ann, &nobody));
    EXPECT_THROW(bare.isSet(&ann), AttributeError);
    EXPECT_THROW(bare.isEq(&ann, &other), AttributeError);
}

TEST_F(TypeDataTest, VisitsCollectionsAndNamesOperations) {
    std::string keys;
    ASSERT_EQ(type.collections().size(), 1U);
    type.collections()[0].forEach(
        &ann, [&](const String& key, const Value& /*value*/) { keys += key.view(); });
    EXPECT_EQ(keys, "Ann");
    ASSERT_EQ(type.operations().size(), 1U);
    EXPECT_STREQ(type.operations()[0], "ageIs");
}

TEST_F(TypeDataTest, IsKnownByNameWhileItsRegistrationLives) {
    EXPECT_EQ(Zell::registeredType("Person"), nullptr);
    {
        const Zell::TypeRegistration registration(type);
        EXPECT_EQ(Zell::registeredType("Person"), &type);
    }
    EXPECT_EQ(Zell::registeredType("Person"), nullptr);
}

TEST_F(TypeDataTest, IsListedInTheOrderOfNames) {
    const Zell::TypeRegistration one(type);
    const Zell::TypeRegistration two(bare);
    std::vector<std::string> names;
    for (const TypeData* const each : Zell::registeredTypes()) {
        names.emplace_back(each->name());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Bare", "Brisklog::Event", "Person",
                                               "Zell::FileDescriptor", "Zell::LogFacility"}));
}

TEST_F(TypeDataTest, EndsTheProcessWhenANameIsRegisteredTwice) {
    const Zell::TypeRegistration registration(type);
    EXPECT_DEATH({ const Zell::TypeRegistration again(type); },
                 "TypeRegistration:[0-9]+: TypeRegistration: assertion failed: inserted");
}

TEST_F(TypeDataTest, ShowsADescriptorReadOnly) {
    const auto descriptor = Orvo::makeNode<Zell::FileDescriptor>(".ima");
    const TypeData& shown = descriptor->typeData();
    EXPECT_EQ(Zell::registeredType("Zell::FileDescriptor"), &shown);
    EXPECT_EQ(shown.value(descriptor.get(), 0), Value(String(".ima")));
    EXPECT_EQ(shown.value(descriptor.get(), 1), Value(std::int64_t{-1}));
    EXPECT_EQ(shown.value(descriptor.get(), 2), Value(std::int64_t{0}));
    for (std::size_t i = 0; i < shown.attributes().size(); ++i) {
        EXPECT_THROW(shown.valueIs(descriptor.get(), i, std::int64_t{1}), AttributeError);
    }
}

} // namespace

} // namespace Vestrel::Tests
