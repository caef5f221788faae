// SPDX-License-Identifier: Apache-2.0
// Those that random scenarios found, made short, and those that they would find seldom.
#include "tests/scenario/NamedScenarios.h"

namespace Vestrel::Tests {

const std::vector<NamedScenario>& namedScenarios() {
    static const std::vector<NamedScenario> scenarios{
        {"OrderOfTheDirectoryDecidesWhichOfTwoCutDescriptionsIsOnRecord",
         "write secondary/a cut-2; write secondary/b cut-1; restart; loop"},
        {"KeyOfTheRootStaysWhenItsFileGoes",
         "write builtin/b root; restart; delete builtin/b; loop"},
        {"NothingChangesTheKeyringsOfTheSystem",
         "write machine/a alpha; restart; write machine/b root; add machine beta; loop; "
         "clear machine; link machine alpha; clear builtin; unlink builtin root; add builtin beta; "
         "loop; delete machine/a; write machine/a stranger; loop"},
        {"FileMovedOutAndBackIsDroppedByTheMoveOut",
         "restart; write ima/a alpha; loop; move ima/a out/a; move out/a ima/a; loop; "
         "write ima/a alpha; loop"},
        {"UnlinkingADisplacedKeyTakesItsSuccessorOut",
         "restart; write ima/a alpha; loop; link ima alpha; write ima/a beta; loop"},
        {"FileClosedAfterItsEndIsNoFile",
         "restart; write ima/a alpha; loop; open 1 ima/a beta; delete ima/a; close 1; loop"},
        {"FileClosedAfterItsEndReloadsItsSuccessor",
         "restart; open 1 ima/a alpha; loop; delete ima/a; write ima/a beta; close 1; loop"},
        {"FileClosedAndReplacedByALinkIsFollowed",
         "restart; write out/x alpha; write ima/a beta; delete ima/a; symlink ima/a out/x; loop"},
        {"OnlyOneOfTwoKeysOfOneRecordedDescriptionIsUnlinked",
         "link ima cut-1; link ima cut-2; restart; loop; write ima/a cut-1; move ima/a out/x; "
         "write out/y cut-1; move out/y ima/a; loop"},
        {"UnlinkingADisplacedKeyThatIsHeldTakesItsSuccessorOut",
         "restart; write ima/a alpha; loop; link ima alpha; loop; delete ima/a; add ima alpha; "
         "loop"},
        {"FileClosedUnderItsNewNameIsLoadedThere",
         "restart; open 1 ima/a alpha; move ima/a ima/b; close 1; loop; delete ima/b; loop"},
        {"EventsThatSayTheSameAreReportedOnce",
         "restart; write ima/a stranger; write ima/a garbage; loop"},
        {"FileMovedOverLeavesTheOldKeyAndItsFileSet",
         "restart; write ima/a alpha; write ima/b beta; loop; move ima/b ima/a; loop; "
         "delete ima/a; loop; add ima alpha; restart; loop"},
        {"DirectoryMovedInIsRefused",
         "restart; mkdir out/a; move out/a ima/a; loop; delete ima/a; loop"},
        {"LinkIsFollowedWhereItLeads",
         "write out/a alpha; symlink ima/a out/a; restart; write out/a beta; restart; loop; "
         "delete out/a; restart; loop"},
        {"LinkMovedInAfterItsTargetWentIsRefused",
         "restart; symlink out/b out/a; move out/b ima/b; loop; write ima/b gamma; loop"},
        {"FileOfOneDirectoryMovedToAnotherChangesBothKeyrings",
         "restart; write ima/a alpha; loop; move ima/a secondary/a; loop; move secondary/a "
         "builtin/a; "
         "loop"},
        {"TemporaryNameTakesAMonitoredFileAway",
         "restart; write ima/a alpha; loop; move ima/a ima/a.integrity-tmp; loop; "
         "move ima/a.integrity-tmp ima/a; loop"},
        {"ClearedKeysStayOnRecordUntilTheirDescriptionComesBack",
         "restart; write ima/a alpha; add ima beta; loop; clear ima; loop; write ima/b beta; "
         "delete ima/a; loop; add ima alpha; loop"},
        {"DescriptionCutToNothingIsOnRecordWithoutAFile",
         "restart; write ima/a cut-away; loop; link ima cut-away; loop; delete ima/a; loop; "
         "restart; "
         "unlink ima cut-away; loop"},
    };
    return scenarios;
}

const std::vector<NamedScenario>& fatalScenarios() {
    static const std::vector<NamedScenario> scenarios{
        {"FileMovedOutAndBackAndDeleted", "restart; write ima/a alpha; loop; move ima/a out/a; "
                                          "move out/a ima/a; delete ima/a; loop"},
        {"FileMovedOutAndWrittenAnewInVain",
         "restart; write ima/a alpha; loop; move ima/a out/a; write ima/a garbage; loop"},
        {"FileMovedOutTwice", "restart; write ima/a alpha; loop; move ima/a out/a; move out/a "
                              "ima/a; move ima/a out/b; loop"},
    };
    return scenarios;
}

} // namespace Vestrel::Tests
