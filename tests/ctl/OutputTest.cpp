// SPDX-License-Identifier: Apache-2.0
// The text forms and the JSON form of a result.
#include "ctl/Output.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Vestrel::Tests {

namespace {

class CtlOutput : public testing::Test {
protected:
    std::string text() {
        const std::string text = out_.str();
        out_.str("");
        return text;
    }

    std::ostringstream out_;
    std::ostringstream err_;
    Output output_{out_, err_};
    const std::vector<Column> columns_{{"a", "First"}, {"b", "Second"}};
    const Json rows_ = {{{"a", "long text"}, {"b", 1}}, {{"a", "x"}, {"b", {"one", "two"}}}};
};

TEST_F(CtlOutput, AlignsTheColumnsOfATable) {
    output_.table("rows", columns_, rows_);
    EXPECT_EQ(text(), "First      Second\n"
                      "long text  1\n"
                      "x          one, two\n");
}

TEST_F(CtlOutput, AlignsByCharactersNotBytes) {
    const Json row{{"a", "Schl\xc3\xbcssel"}, {"b", "x"}};
    output_.table("rows", columns_, Json::array({row}));
    EXPECT_EQ(text(), "First      Second\n"
                      "Schl\xc3\xbcssel  x\n");
}

TEST_F(CtlOutput, ShowsTheHeadingsOfATableWithoutRows) {
    output_.table("rows", columns_, Json::array());
    EXPECT_EQ(text(), "First  Second\n");
}

TEST_F(CtlOutput, WritesRecordsAsParagraphsWithoutEmptyMembers) {
    output_.records("rows", columns_, {{{"a", "x"}, {"b", ""}}, {{"b", "y"}}});
    EXPECT_EQ(text(), "First:   x\n"
                      "\n"
                      "Second:  y\n");
}

TEST_F(CtlOutput, WritesALineForEachRow) {
    output_.lines("rows", rows_, [](const Json& row) { return row["a"].get<std::string>(); });
    EXPECT_EQ(text(), "long text\nx\n");
}

TEST_F(CtlOutput, IsOneLineOfJsonInTheOrderOfTheMembers) {
    output_.jsonIs(true);
    const std::string expected = R"({"rows":[{"a":"long text","b":1},{"a":"x","b":["one","two"]}]})"
                                 "\n";
    output_.table("rows", columns_, rows_);
    EXPECT_EQ(text(), expected);
    output_.records("rows", columns_, rows_);
    EXPECT_EQ(text(), expected);
    output_.lines("rows", rows_, [](const Json&) { return std::string("not shown"); });
    EXPECT_EQ(text(), expected);
}

TEST_F(CtlOutput, NeverLetsARowBreakItsLineNorItsTerminal) {
    const Json hostile{{"a", "one\ntwo\x1b[2J"}};
    const Json rows = Json::array({hostile});
    output_.table("rows", {{"a", "A"}}, rows);
    EXPECT_EQ(text(), "A\none\\x0atwo\\x1b[2J\n");
    output_.records("rows", {{"a", "A"}}, rows);
    EXPECT_EQ(text(), "A:  one\\x0atwo\\x1b[2J\n");
    output_.lines("rows", rows, [](const Json& row) { return row["a"].get<std::string>(); });
    EXPECT_EQ(text(), "one\\x0atwo\\x1b[2J\n");
    output_.complaint("one\ntwo\x9b");
    EXPECT_EQ(err_.str(), "vestrelctl: one\\x0atwo\\x9b\n");
    const Json wide{{"a", "\xc2\x9b\x32J \xc3\xa4"}};
    output_.table("rows", {{"a", "A"}}, Json::array({wide}));
    EXPECT_EQ(text(), "A\n\\xc2\\x9b2J \xc3\xa4\n");
}

TEST_F(CtlOutput, WritesWhatJsonCannotCarryInHexadecimal) {
    output_.jsonIs(true);
    const Json row{{"a", "\xff"}};
    output_.table("rows", columns_, Json::array({row}));
    EXPECT_EQ(text(), "{\"rows\":[{\"a\":\"\\\\xff\"}]}\n");
    output_.tables({{"rows", columns_, Json::array({row})}});
    EXPECT_EQ(text(), "{\"rows\":[{\"a\":\"\\\\xff\"}]}\n");
}

} // namespace

} // namespace Vestrel::Tests
