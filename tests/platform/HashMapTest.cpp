// SPDX-License-Identifier: Apache-2.0
// Tests of the keyed collection: its members, its walks and its fatal assertions.
#include "platform/orvo/String.h"
#include "platform/zell/HashMap2018.h"
#include "tests/platform/Accounts.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

// Its key is its first letter.
struct Word {
    std::string text;
    friend bool operator==(const Word& a, const Word& b) = default;
};

struct Words {
    static constexpr const char* pelbinName = "Words";

    struct KeyFunktor {
        char operator()(const Word& word) const { return word.text.front(); }
    };
};

struct Numbers {
    static constexpr const char* pelbinName = "Numbers";
};

using WordMap = Zell::HashMap2018<Words, char, Word>;
using NumberMap = Zell::HashMap2018<Numbers, Orvo::String, int>;

std::string keysOf(const WordMap& map) {
    std::string keys;
    for (auto word = map.iterator(); word; ++word) {
        keys += word.key();
    }
    return keys;
}

// An iterator whose end the test decides.
struct Walk {
    explicit Walk(const WordMap& map) : word(map.iterator()) {}

    WordMap::Iterator word;
};

class HashMap : public testing::Test {
protected:
    HashMap() {
        for (const char* const text : {"beta", "alpha", "delta", "gamma"}) {
            map.valueIs(Word{text});
        }
    }

    WordMap map;
};

TEST_F(HashMap, DerivesTheKeyFromTheValue) {
    ASSERT_NE(map.find('a'), nullptr);
    EXPECT_EQ(map.find('a')->text, "alpha");
    EXPECT_TRUE(map.has('b'));
    EXPECT_FALSE(map.has('z'));
    EXPECT_EQ(map.find('z'), nullptr);
    EXPECT_EQ(map.value('d'), Word{"delta"});
    EXPECT_EQ(map.value('z'), Word());
}

TEST_F(HashMap, TakesAKeyThatAgreesWithTheValue) {
    map.valueIs('e', Word{"epsilon"});
    EXPECT_EQ(map.value('e'), Word{"epsilon"});
}

TEST_F(HashMap, EndsTheProcessWhenKeyAndValueDisagree) {
    EXPECT_DEATH(map.valueIs('x', Word{"epsilon"}),
                 "HashMap2018:[0-9]+: valueIs: assertion failed: "
                 "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

TEST_F(HashMap, EndsTheProcessWhenAReplacementDisagreesWithItsKey) {
    EXPECT_DEATH(map.valueIs('a', Word{"beta"}), "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

TEST(HashMapOfAnyKey, TakesEveryKeyAsItIs) {
    NumberMap numbers;
    numbers.valueIs("one", 1);
    numbers.valueIs("zero", 0);
    EXPECT_EQ(numbers.value("one"), 1);
    EXPECT_EQ(numbers.value("none"), 0);
    EXPECT_TRUE(numbers.has("zero"));
    EXPECT_EQ(numbers.size(), 2U);
}

TEST_F(HashMap, WalksInTheOrderOfInsertion) {
    EXPECT_EQ(keysOf(map), "badg");
    EXPECT_EQ(map.size(), 4U);
    EXPECT_FALSE(map.empty());
}

TEST_F(HashMap, KeepsTheOrderOfManyMembers) {
    NumberMap numbers;
    for (int i = 0; i < 1000; ++i) {
        numbers.valueIs(std::to_string(i), i);
    }
    int next = 0;
    for (auto number = numbers.iterator(); number; ++number) {
        EXPECT_EQ(*number, next++);
    }
    EXPECT_EQ(next, 1000);
}

TEST_F(HashMap, KeepsThePlaceOfAReplacedMember) {
    map.valueIs(Word{"avocado"});
    EXPECT_EQ(keysOf(map), "badg");
    EXPECT_EQ(map.value('a'), Word{"avocado"});
    EXPECT_EQ(map.size(), 4U);
}

TEST_F(HashMap, ReturnsWhatItDeletes) {
    EXPECT_EQ(map.del('d'), Word{"delta"});
    EXPECT_EQ(keysOf(map), "bag");
    EXPECT_EQ(map.del('d'), Word());
    EXPECT_EQ(map.size(), 3U);
}

TEST_F(HashMap, PutsADeletedAndInsertedMemberLast) {
    map.del('b');
    map.valueIs(Word{"beta"});
    EXPECT_EQ(keysOf(map), "adgb");
}

TEST_F(HashMap, IsEmptyAfterDeletingAll) {
    map.delAll();
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(keysOf(map), "");
    map.delAll();
    map.valueIs(Word{"zeta"});
    EXPECT_EQ(keysOf(map), "z");
}

TEST(HashMapAccount, ReturnsToZero) {
    {
        WordMap map;
        map.valueIs(Word{"alpha"});
        map.valueIs(Word{"beta"});
        EXPECT_GE(accountOf("Words").objects, 2U);
    }
    EXPECT_EQ(accountOf("Words").objects, 0U);
    EXPECT_EQ(accountOf("Words").bytes, 0U);
}

TEST_F(HashMap, ReadsTheMemberThatAnIteratorStandsOn) {
    auto word = map.iterator();
    EXPECT_EQ(word.key(), 'b');
    EXPECT_EQ(*word, Word{"beta"});
    EXPECT_EQ(word->text, "beta");
    map.valueIs(Word{"bravo"});
    EXPECT_EQ(word->text, "bravo");
}

TEST_F(HashMap, GoesOnBehindTheMemberThatWasDeletedUnderTheIterator) {
    auto word = map.iterator();
    ++word;
    map.del('a');
    EXPECT_FALSE(word);
    ++word;
    ASSERT_TRUE(word);
    EXPECT_EQ(word.key(), 'd');
}

TEST_F(HashMap, LetsAWalkDeleteEveryMemberItStandsOn) {
    std::string walked;
    for (auto word = map.iterator(); word; ++word) {
        walked += word.key();
        map.del(word.key());
    }
    EXPECT_EQ(walked, "badg");
    EXPECT_TRUE(map.empty());
}

TEST_F(HashMap, SkipsTheNextMemberWhenItWasDeleted) {
    auto word = map.iterator();
    map.del('a');
    EXPECT_EQ(word.key(), 'b');
    ++word;
    EXPECT_EQ(word.key(), 'd');
}

TEST_F(HashMap, SkipsAllThatWereDeletedBehindTheDeletedMember) {
    auto word = map.iterator();
    map.del('b');
    map.del('a');
    map.del('d');
    ++word;
    EXPECT_EQ(word.key(), 'g');
}

TEST_F(HashMap, EndsTheWalkWhenAllWasDeletedMeanwhile) {
    auto word = map.iterator();
    map.delAll();
    EXPECT_FALSE(word);
    ++word;
    EXPECT_FALSE(word);
}

TEST_F(HashMap, KeepsEveryIteratorUsable) {
    auto one = map.iterator();
    auto two = map.iterator();
    {
        const auto three = map.iterator();
        ++two;
        map.del('b');
    }
    ++one;
    EXPECT_EQ(one.key(), 'a');
    EXPECT_EQ(two.key(), 'a');
    map.del('a');
    ++one;
    ++two;
    EXPECT_EQ(one.key(), 'd');
    EXPECT_EQ(two.key(), 'd');
}

TEST_F(HashMap, LosesAnyOfItsIterators) {
    auto first = std::make_unique<Walk>(map);
    auto middle = std::make_unique<Walk>(map);
    auto last = std::make_unique<Walk>(map);
    middle = nullptr;
    first = nullptr;
    map.del('b');
    ++last->word;
    EXPECT_EQ(last->word.key(), 'a');
}

TEST_F(HashMap, WalksOverMembersInsertedMeanwhile) {
    std::string walked;
    for (auto word = map.iterator(); word; ++word) {
        walked += word.key();
        if (word.key() == 'g') {
            map.valueIs(Word{"zeta"});
        }
        for (int i = 0; i < 60 && walked.size() == 1; ++i) { // makes the container grow
            const Word filler{std::string(1, static_cast<char>(i + 1))};
            map.valueIs(filler);
            map.del(filler.text.front());
        }
    }
    EXPECT_EQ(walked, "badgz");
}

TEST_F(HashMap, LeavesAnIteratorOverNothingWhenTheMapGoesFirst) {
    auto passing = std::make_unique<WordMap>();
    passing->valueIs(Word{"alpha"});
    const auto word = passing->iterator();
    const auto other = passing->iterator();
    EXPECT_TRUE(word);
    passing = nullptr;
    EXPECT_FALSE(word);
    EXPECT_FALSE(other);
}

TEST_F(HashMap, EndsTheProcessWhenReadOrSteppedPastTheEnd) {
    map.delAll();
    auto word = map.iterator();
    EXPECT_FALSE(word);
    EXPECT_DEATH(*word, "HashMap2018:[0-9]+: operator\\*: assertion failed: iter_\n");
    EXPECT_DEATH(word.key(), "HashMap2018:[0-9]+: key: assertion failed: iter_\n");
    EXPECT_DEATH(word->text.size(), "assertion failed: iter_\n");
    EXPECT_DEATH(++word, "HashMap2018:[0-9]+: operator\\+\\+: assertion failed: iter_\n");
}

TEST_F(HashMap, EndsTheProcessWhenADeletedMemberIsRead) {
    const auto word = map.iterator();
    map.del('b');
    EXPECT_DEATH(*word, "assertion failed: iter_\n");
    EXPECT_DEATH(word.key(), "assertion failed: iter_\n");
}

TEST_F(HashMap, EndsTheProcessWhenSteppedTwiceBehindTheDeletedLastMember) {
    auto word = map.iterator();
    for (int i = 0; i < 3; ++i) {
        ++word;
    }
    map.del('g');
    ++word;
    EXPECT_FALSE(word);
    EXPECT_DEATH(++word, "assertion failed: iter_\n");
}

TEST_F(HashMap, EndsTheProcessWhenAnIteratorOfAGoneMapIsUsed) {
    auto passing = std::make_unique<WordMap>();
    passing->valueIs(Word{"alpha"});
    auto word = passing->iterator();
    passing->del('a');
    passing = nullptr;
    EXPECT_DEATH(*word, "assertion failed: iter_\n");
    EXPECT_DEATH(++word, "assertion failed: iter_\n");
}

} // namespace

} // namespace Vestrel::Tests
