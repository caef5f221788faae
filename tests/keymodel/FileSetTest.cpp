// SPDX-License-Identifier: Apache-2.0
// Tests the set of files that carry one description.
#include "keymodel/FileSetPerDescription.h"
#include "platform/orvo/Ptr.h"
#include "platform/zell/TypeData.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

class FileSet : public testing::Test {
protected:
    Orvo::Ptr<FileSetPerDescription> files = Orvo::makeNode<FileSetPerDescription>();
};

TEST_F(FileSet, StartsEmpty) {
    EXPECT_EQ(files->filePathCount(), 0U);
    EXPECT_FALSE(files->filePathHas("/etc/keys/ima/a"));
}

TEST_F(FileSet, CountsItsMembers) {
    files->filePathIs("/a");
    files->filePathIs("/b");
    EXPECT_EQ(files->filePathCount(), 2U);
    EXPECT_TRUE(files->filePathHas("/a"));
    EXPECT_TRUE(files->filePathHas("/b"));
}

TEST_F(FileSet, KeepsOneMemberWhenAPathIsAddedTwice) {
    files->filePathIs("/a");
    files->filePathIs(Orvo::String(std::string("/") + "a"));
    EXPECT_EQ(files->filePathCount(), 1U);
    files->filePathDel("/a");
    EXPECT_EQ(files->filePathCount(), 0U);
}

TEST_F(FileSet, DoesNothingWhenAnAbsentPathIsRemoved) {
    files->filePathIs("/a");
    files->filePathDel("/b");
    files->filePathDel("");
    EXPECT_EQ(files->filePathCount(), 1U);
    EXPECT_TRUE(files->filePathHas("/a"));
}

TEST_F(FileSet, RemovesOnlyThePathNamed) {
    files->filePathIs("/a");
    files->filePathIs("/b");
    files->filePathDel("/a");
    EXPECT_FALSE(files->filePathHas("/a"));
    EXPECT_TRUE(files->filePathHas("/b"));
    EXPECT_EQ(files->filePathCount(), 1U);
}

TEST_F(FileSet, ShowsItsMembersThroughReflection) {
    files->filePathIs("/b");
    files->filePathIs("/a");
    const Zell::TypeData& type = files->typeData();
    EXPECT_EQ(&type, Zell::registeredType("Vestrel::FileSetPerDescription"));
    ASSERT_EQ(type.collections().size(), 1U);
    EXPECT_STREQ(type.collections()[0].name, "filePath");
    const std::vector<std::string> operations(type.operations().begin(), type.operations().end());
    EXPECT_EQ(operations, (std::vector<std::string>{"filePathIs", "filePathDel"}));
    std::vector<std::string> seen;
    type.collections()[0].forEach(files.get(), [&](const Orvo::String& key, const Orvo::Value& v) {
        EXPECT_EQ(std::get<Orvo::String>(v), key);
        seen.emplace_back(key.view());
    });
    EXPECT_EQ(seen, (std::vector<std::string>{"/a", "/b"}));
}

} // namespace

} // namespace Vestrel::Tests
