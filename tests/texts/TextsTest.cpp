// SPDX-License-Identifier: Apache-2.0
// Holds every trace and log message to the table, and the table to the sources.
#include "tests/texts/Scenario.h"
#include "tests/texts/SourceStatements.h"
#include "tests/texts/TextTable.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <set>

namespace Vestrel::Tests {

namespace {

using Lines = std::vector<std::string>;

bool ofTheStateMachines(const Brisklog::Event& event) {
    return event.handle == "IntegrityKeyringSm" || event.handle == "IntegritySyslogSm";
}

std::string operationOf(const std::string& line) {
    return line.substr(2, line.find(": ") - 2);
}

bool isWritten(const TraceText& row, const Brisklog::Event& event, const std::string& operation) {
    return row.handle == event.handle && row.operation == operation && row.level == event.level &&
           std::ranges::equal(row.values, event.values,
                              [](std::string_view kind, const std::string& value) {
                                  return isOfKind(kind, value);
                              });
}

// One literal of the source, or whatever an expression gives there.
bool isStated(const TraceText& row, const SourceStatement& statement) {
    if (row.handle != statement.handle || row.operation != statement.operation ||
        row.level != statement.level || row.values.size() != statement.values.size()) {
        return false;
    }
    for (std::size_t i = 0; i < row.values.size(); ++i) {
        const bool isKind = row.values[i].starts_with('%');
        if (statement.isExpression[i] ? !isKind : row.values[i] != statement.values[i]) {
            return false;
        }
    }
    return true;
}

std::string signatureOf(const std::string& handle, const std::string& operation) {
    for (const Signature& signature : signatures()) {
        if (signature.handle == handle && signature.operation == operation) {
            return std::string(signature.text);
        }
    }
    return "no signature of " + handle + "::" + operation + " in the table";
}

class Texts : public Scenario {
protected:
    // The event of each line, both sinks having taken the same ones in the same order.
    void forEachTrace(
        const std::function<void(const std::string& line, const Brisklog::Event&)>& visitor) const {
        const Lines lines = traces();
        const auto events = Brisklog::events();
        ASSERT_EQ(lines.size(), events.size());
        ASSERT_EQ(Brisklog::dropped(), droppedBefore_);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (ofTheStateMachines(events[i])) {
                visitor(lines[i], events[i]);
            }
        }
    }

private:
    std::uint64_t droppedBefore_ = Brisklog::dropped();
};

TEST_F(Texts, OfTracesAreThoseOfTheTableAndEachOfThemIsWritten) {
    everything();
    std::set<std::size_t> written;
    forEachTrace([&](const std::string& line, const Brisklog::Event& event) {
        std::size_t matching = 0;
        for (std::size_t i = 0; i < traceTexts().size(); ++i) {
            if (isWritten(traceTexts()[i], event, operationOf(line))) {
                written.insert(i);
                ++matching;
            }
        }
        EXPECT_EQ(matching, 1U) << event.handle << " " << line;
    });
    for (std::size_t i = 0; i < traceTexts().size(); ++i) {
        EXPECT_TRUE(written.contains(i)) << "not written: " << textOf(traceTexts()[i]);
    }
    EXPECT_EQ(calls.pending(), 0U) << "every failure has struck";
    EXPECT_EQ(keys.pendingFailures(), 0U);
}

TEST_F(Texts, OpenWithTheOperationsShortNameAndHoldTheValuesWithNothingBetween) {
    everything();
    forEachTrace([&](const std::string& line, const Brisklog::Event& event) {
        std::string values;
        for (const std::string& value : event.values) {
            values += value;
        }
        EXPECT_EQ(line, std::to_string(event.level) + " " + operationOf(line) + ": " + values);
    });
}

TEST_F(Texts, OfTheRingHaveTheFullSignatureAndOnePlaceForEachValue) {
    everything();
    std::set<std::string> seen;
    forEachTrace([&](const std::string& line, const Brisklog::Event& event) {
        std::string places;
        for (std::size_t i = 0; i < event.values.size(); ++i) {
            places += "%s";
        }
        const std::string signature = signatureOf(event.handle, operationOf(line));
        seen.insert(signature);
        EXPECT_EQ(plainSignature(event.format), signature + ": " + places);
    });
    EXPECT_EQ(seen.size(), signatures().size()) << "an operation of the table writes nothing";
}

TEST_F(Texts, OfEveryStatementOfTheSourcesAreInTheTableOnce) {
    const auto statements = traceStatements();
    std::map<std::size_t, Lines> places;
    for (const SourceStatement& statement : statements) {
        std::size_t matching = 0;
        for (std::size_t i = 0; i < traceTexts().size(); ++i) {
            if (isStated(traceTexts()[i], statement)) {
                places[i].push_back(statement.where);
                ++matching;
            }
        }
        EXPECT_EQ(matching, 1U) << statement.where << " has no row of its own";
    }
    for (std::size_t i = 0; i < traceTexts().size(); ++i) {
        EXPECT_EQ(places[i].size(), 1U)
            << textOf(traceTexts()[i]) << ": " << testing::PrintToString(places[i]);
    }
}

TEST_F(Texts, ThatAreFailuresAreAllThatLevelOneShowsInBothSinks) {
    Zell::traceLevelIs(1);
    everything();
    std::size_t shown = 0;
    forEachTrace([&](const std::string&, const Brisklog::Event& event) {
        EXPECT_EQ(event.level, 1);
        ++shown;
    });
    const auto failures = std::ranges::count(traceTexts(), 1, &TraceText::level);
    EXPECT_GE(shown, static_cast<std::size_t>(failures));
}

TEST_F(Texts, AreNotEvenMadeWhenTheirLevelIsOff) {
    Zell::traceLevelIs(0);
    everything();
    EXPECT_EQ(traces(), Lines{});
    EXPECT_TRUE(Brisklog::events().empty());
}

TEST_F(Texts, OfLogMessagesAreRaisedAsTheirRecordsSay) {
    EXPECT_EQ(logCalls(), (Lines{"VESTREL_INTEGRITY", "VESTREL_INTEGRITY_LOAD_KEY_FAIL"}))
        << "a message that is raised needs a line below";
    everything();
    const std::set<std::string> raised(messages.begin(), messages.end());
    EXPECT_TRUE(raised.contains("VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate "
                                "/etc/keys/ima/refused in keyring (.ima). " +
                                std::string(std::strerror(ENOKEY)) + "."))
        << testing::PrintToString(raised);
    EXPECT_TRUE(raised.contains("VESTREL_INTEGRITY: Integrity error of type AUDIT_INTEGRITY_DATA "
                                "(missing-hash), for file /usr/bin/tool, invoked by tool"))
        << testing::PrintToString(raised);
    EXPECT_EQ(raised.size(), 2U) << testing::PrintToString(raised);
}

} // namespace

} // namespace Vestrel::Tests
