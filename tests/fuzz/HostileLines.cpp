// SPDX-License-Identifier: Apache-2.0
// Real and hostile kernel lines.
#include "tests/fuzz/AppraisalLines.h"

#include <array>

namespace Vestrel::Tests {

namespace {

// A place in the real record at which something may be repeated.
struct Place {
    const char* name;
    std::string_view before; // the first occurrence of this text ends there
};

constexpr std::array blankPlaces{
    Place{"Bracket", "kernel: ["},  Place{"Stamp", "]["},         Place{"Thread", "T10]"},
    Place{"Audit", "audit:"},       Place{"Type", "type=1800"},   Place{"Serial", "):"},
    Place{"Pid", "pid=115"},        Place{"Uid", " uid=0"},       Place{"Auid", "d=4294967295"},
    Place{"Ses", "ses=4294967295"}, Place{"Op", "appraise_data"}, Place{"CauseEquals", "cause="},
    Place{"Cause", "missing-hash"}, Place{"Comm", "\"vmt\""},     Place{"Name", "nohash\""},
    Place{"Dev", "rootfs\""},       Place{"Ino", "ino=392"},      Place{"Res", "res=0"},
};

constexpr std::array digitPlaces{
    Place{"Stamp", "[    2"},  Place{"Thread", "T1"},  Place{"Serial", "audit(1"},
    Place{"Pid", "pid=1"},     Place{"Uid", " uid=0"}, Place{"Auid", "auid=4"},
    Place{"Ses", "ses=4"},     Place{"Ino", "ino=3"},  Place{"Res", "res=0"},
    Place{"Errno", "errno=0"},
};

constexpr std::array textPlaces{Place{"Cause", "missing"}, Place{"Comm", "\"vm"},
                                Place{"Name", "/t/"}, Place{"Dev", "\"root"}};

HostileKind kindAt(const std::string& name, const Place& place, std::string repeated) {
    const std::size_t end = realLine.find(place.before) + place.before.size();
    return {name + place.name, std::string(realLine.substr(0, end)), std::move(repeated),
            std::string(realLine.substr(end)), true};
}

void addPlaces(std::vector<HostileKind>& kinds) {
    for (const Place& place : blankPlaces) {
        kinds.push_back(kindAt("BlanksAfter", place, " "));
        kinds.push_back(kindAt("MixedBlanksAfter", place, "\t \v\f"));
    }
    for (const Place& place : digitPlaces) {
        kinds.push_back(kindAt("DigitsIn", place, "7"));
    }
    for (const Place& place : textPlaces) {
        kinds.push_back(kindAt("Long", place, "x"));
        kinds.push_back(kindAt("Worded", place, "x "));
        kinds.push_back(kindAt("HeadsIn", place, "kernel: [ 1.0][ T1] audit: "));
    }
}

// Repetitions of parts and of all of the record, with and without what would complete them.
void addRepetitions(std::vector<HostileKind>& kinds) {
    const std::string head(realHead);
    const std::string tail(realTail);
    const std::string line(realLine);
    const std::string stump = "kernel: [";
    kinds.insert(
        kinds.end(),
        {
            {"Nothing", "", " ", "", false},
            {"Digits", "", "7", "", false},
            {"Quotes", "", "\"", "", false},
            {"OnlyErrnoDigits", "errno=", "7", "", false},
            {"BlanksWithoutTail", head, " ", "", false},
            {"LongCauseWithoutTail", head, "x", "", false},
            {"Stumps", "", stump, "", false},
            {"StumpsBeforeTail", "", stump, " " + tail, false},
            {"StumpsBeforeRecord", "", stump, line, true},
            {"StumpsInCause", head, stump, " " + tail, true},
            {"BlankStumps", "", stump + "       ", "a " + tail, false},
            {"DigitStumps", "", stump + "1111111", "a " + tail, false},
            {"Heads", "", head, "", false},
            {"HeadsBeforeTail", "", head, "x " + tail, true},
            {"HeadsBehindLineEnd", "", head, "x\n x " + tail, false},
            {"HeadsOnLines", "", head + "\n", " x " + tail, false},
            {"HeadsBeforeLineEndsAndTail", head, "\n", tail, false},
            {"CauseBeforeLineEndsAndTail", head + "x", "\n", tail, true},
            {"HeadsWithoutLastByte", "", head.substr(0, head.size() - 1), " " + tail, false},
            {"Tails", "", tail + " ", tail, false},
            {"TailsBehindHead", head + "x ", tail + " ", tail, true},
            {"TailsWithoutLastByte", head + "x ", tail.substr(0, tail.size() - 1) + " ", "", false},
            {"Lines", "", line + " ", line, true},
            {"LinesWithLineEnds", "", line + "\n", line, true},
            {"LinesThatEndOtherwise", "", line + " ", ".", false},
            {"CommStarts", head, "comm=\"", "\"" + tail, false},
            {"Causes", head, " cause=a", " " + tail, true},
        });
}

std::vector<HostileKind> makeKinds() {
    std::vector<HostileKind> kinds;
    addPlaces(kinds);
    addRepetitions(kinds);
    return kinds;
}

} // namespace

std::string HostileKind::line(std::size_t size) const {
    std::string text = before;
    while (text.size() + repeated.size() + after.size() <= size) {
        text += repeated;
    }
    return text + after;
}

const std::vector<HostileKind>& hostileKinds() {
    static const std::vector<HostileKind> kinds = makeKinds();
    return kinds;
}

const std::vector<std::string_view>& ordinaryLines() {
    static const std::vector<std::string_view> lines{
        realLine,
        R"(kernel: [   42.767325][  T312] audit: type=1800 audit(1795226865.119:47): pid=312 uid=1000 )"
        R"(auid=1000 ses=3 op=appraise_data cause=invalid-signature comm="bash" )"
        R"(name="/usr/bin/tool" dev="sda1" ino=1048577 res=0 errno=0)",
        R"(kernel: [  107.000001][    T1] audit: type=1800 audit(1795226930.001:90): pid=1 uid=0 )"
        R"(auid=4294967295 ses=4294967295 op=appraise_data cause=IMA-signature-required comm="init" )"
        R"(name="/etc/rc.conf" dev="mmcblk0p2" ino=77 res=0 errno=0)",
        R"(kernel: [  109.467325][  T312] audit: type=1800 audit(1795226933.119:93): pid=312 uid=0 )"
        R"(auid=0 ses=1 op=appraise_metadata cause=missing-HMAC comm="cp" name="/t/a" dev="sda1" )"
        R"(ino=12 res=0 errno=0)",
        R"(kernel: [  111.567325][  T318] audit: type=1800 audit(1795226935.009:95): pid=318 uid=0 )"
        R"(auid=0 ses=1 op=appraise_data cause=missing-hash comm=6120622063 )"
        R"(name=2F742F7769746820626C616E6B dev="rootfs" ino=400 res=0 errno=0)",
        R"(kernel: [    0.000000][    T0] Linux version 6.1.0 (gcc 12.2.0) #1 SMP PREEMPT_DYNAMIC)",
        R"(kernel: [    1.534217][    T1] usb 1-1.4: new high-speed USB device number 5 using xhci_hcd)",
        R"(kernel: [  311.412340][   T45] EXT4-fs (sda1): re-mounted. Quota mode: none.)",
        R"(kernel: [  312.000310][  T901] IPv6: ADDRCONF(NETDEV_CHANGE): eth3: link becomes ready)",
        R"(kernel: [  418.912340][  T977] audit: type=1400 audit(1795227242.912:131): apparmor="DENIED" )"
        R"(operation="open" profile="/usr/sbin/ntpd" name="/etc/ssl/openssl.cnf" pid=977 comm="ntpd" )"
        R"(requested_mask="r" denied_mask="r" fsuid=0 ouid=0)",
    };
    return lines;
}

} // namespace Vestrel::Tests
