// SPDX-License-Identifier: Apache-2.0
// Kernel lines for tests, fuzzing and benches of the search for the appraisal record: real ones,
// hostile ones of any length, and random ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

// The record of a failed appraisal as a log daemon forwards it.
inline constexpr std::string_view realLine =
    R"(kernel: [    2.647055][   T10] audit: type=1800 audit(1795226825.572:11): pid=115 uid=0 )"
    R"(auid=4294967295 ses=4294967295 op=appraise_data cause=missing-hash comm="vmt" )"
    R"(name="/t/nohash" dev="rootfs" ino=392 res=0 errno=0)";

// Its parts: everything up to `cause=`, and everything from `comm="` on.
inline constexpr std::string_view realHead = realLine.substr(0, realLine.find("missing-hash"));
inline constexpr std::string_view realTail = realLine.substr(realLine.find("comm="));

// Lines as they arrive on a device, most of which are no appraisal record.
const std::vector<std::string_view>& ordinaryLines();

// A way to make a line of (nearly) any length that a careless matcher would spend much time or
// stack on.
struct HostileKind {
    std::string name; // a word for test names
    std::string before;
    std::string repeated; // as often as the length allows
    std::string after;
    bool matches;

    std::string line(std::size_t size) const;
};

const std::vector<HostileKind>& hostileKinds();

// The longest line that the state machine hands to the search, without its last byte.
inline constexpr std::size_t longestHostileLine = 8191;

// Random lines, the same ones for the same seed.
class AppraisalLines {
public:
    explicit AppraisalLines(std::uint64_t seed) : random_(seed) {}

    // Of a few hundred bytes: what the pattern describes, damaged here and there, or an ordinary
    // line with random changes.
    std::string next();

    // Pieces of the pattern in random order, of exactly that size.
    std::string tiling(std::size_t size);

private:
    std::size_t below(std::size_t limit) { return random_() % limit; }

    bool oneIn(std::size_t times) { return below(times) == 0; }

    std::string_view oneOf(std::initializer_list<std::string_view> texts);

    char byte() { return static_cast<char>(below(256)); }

    void literal(std::string_view text);
    void blanks(bool atLeastOne);
    void digits(std::string_view alsoAllowed = {});
    void number(std::string_view name);
    void quoted(std::string_view name);
    void value();
    void junk();
    void head();
    void cause();
    void tail();
    void structured();
    void mutate();
    void mutateOnce(std::size_t place);

    std::mt19937_64 random_;
    std::string line_;
    std::size_t damage_ = 0; // one piece in so many is not as it should be; 0: none
};

} // namespace Vestrel::Tests
