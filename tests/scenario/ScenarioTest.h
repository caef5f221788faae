// SPDX-License-Identifier: Apache-2.0
// What is asked of scenarios on every stage. A test program says with VESTREL_SCENARIOS_ON which
// stage that is and how many random scenarios it plays unless the environment says otherwise.
#pragma once

#include "tests/scenario/NamedScenarios.h"
#include "tests/scenario/Play.h"

#include <gtest/gtest.h>

#include <iostream>

namespace Vestrel::Tests {

inline void expectRandomScenariosEndAsTheRulesSay(const StageMaker& makeStage,
                                                  std::uint64_t usual) {
    const Played played = playRandom(makeStage, seedWanted(), scenariosWanted(usual));
    std::cout << played.scenarios << " scenarios of " << played.steps << " steps, from seed "
              << seedWanted() << ": " << played.kinds.text() << "\n";
    ASSERT_FALSE(played.difference) << *played.difference;
    EXPECT_EQ(played.kinds.count(Kinds::leftOut), 0U);
    constexpr std::uint64_t enough = 200;
    for (const std::string& kind : Kinds::wanted()) {
        EXPECT_TRUE(played.scenarios < enough || played.kinds.count(kind) != 0) << kind;
    }
}

inline void expectEndsAsTheRulesSay(const NamedScenario& scenario, const StageMaker& makeStage) {
    constexpr std::uint64_t seeds = 8; // what is left open goes different ways
    for (std::uint64_t seed = 0; seed < seeds; ++seed) {
        Kinds kinds;
        const auto difference = play(stepsOf(scenario.steps), makeStage, seed, kinds);
        ASSERT_FALSE(difference) << *difference;
        ASSERT_EQ(kinds.count(Kinds::end), 0U);
        ASSERT_EQ(kinds.count(Kinds::leftOut), 0U);
    }
}

inline void expectEndsTheProcess(const NamedScenario& scenario, const StageMaker& makeStage) {
    Kinds kinds;
    const auto difference = play(stepsOf(scenario.steps), makeStage, 0, kinds);
    EXPECT_FALSE(difference) << *difference;
    EXPECT_EQ(kinds.count(Kinds::end), 1U);
    EXPECT_EQ(kinds.count(Kinds::leftOut), 0U);
}

// NOLINTBEGIN(cppcoreguidelines-macro-usage)
#define VESTREL_SCENARIOS_ON(suite, makeStage, usual)                                              \
    class suite : public testing::TestWithParam<NamedScenario> {};                                 \
    class suite##Fatal : public testing::TestWithParam<NamedScenario> {};                          \
    TEST(suite##Random, EndsAsTheRulesSay) {                                                       \
        expectRandomScenariosEndAsTheRulesSay(makeStage, usual);                                   \
    }                                                                                              \
    TEST_P(suite, EndsAsTheRulesSay) {                                                             \
        expectEndsAsTheRulesSay(GetParam(), makeStage);                                            \
    }                                                                                              \
    TEST_P(suite##Fatal, EndsTheProcess) {                                                         \
        expectEndsTheProcess(GetParam(), makeStage);                                               \
    }                                                                                              \
    INSTANTIATE_TEST_SUITE_P(Where, suite, testing::ValuesIn(namedScenarios()),                    \
                             [](const auto& test) { return std::string(test.param.name); });       \
    INSTANTIATE_TEST_SUITE_P(Where, suite##Fatal, testing::ValuesIn(fatalScenarios()),             \
                             [](const auto& test) { return std::string(test.param.name); })
// NOLINTEND(cppcoreguidelines-macro-usage)

} // namespace Vestrel::Tests
