// SPDX-License-Identifier: Apache-2.0
// Every trace that the state machines write, and every log message that they raise.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

// A value of a trace is the text that stands here, or one of a kind.
inline constexpr std::string_view numberKind = "%number";
inline constexpr std::string_view ringKind = "%keyring";    // a keyring's name
inline constexpr std::string_view causeKind = "%cause";     // the system's text of an errno
inline constexpr std::string_view fileKind = "%file";       // a path below /etc/keys
inline constexpr std::string_view quotedKind = "%\"file\""; // the same in double quotes
inline constexpr std::string_view flagKind = "%flag";       // 0 or 1
inline constexpr std::string_view constantKind = "%=";      // what follows, from an expression
inline constexpr std::string_view keyKind = "%key";         // a key's record
inline constexpr std::string_view kernelKind = "%kernel";   // a key as the kernel describes it
inline constexpr std::string_view descriptionKind = "%description"; // of a certificate's key
inline constexpr std::string_view nameKind = "%name";               // a file's, without a directory
inline constexpr std::string_view subtypeKind = "%subtype";         // a notification's, by its name

struct TraceText {
    std::string_view handle;
    std::string_view operation; // opens the line
    int level;
    std::vector<std::string_view> values; // follow the operation and ": ", nothing between them
};

const std::vector<TraceText>& traceTexts();

// The operation's full signature, which opens the ring's format, without the namespace of the
// state machines and without the blanks on which compilers differ.
struct Signature {
    std::string_view handle;
    std::string_view operation;
    std::string_view text;
};

const std::vector<Signature>& signatures();

// A signature of this compiler in that form.
std::string plainSignature(std::string signature);

bool isOfKind(std::string_view kindOrText, std::string_view value);

// As it stands in messages of tests.
std::string textOf(const TraceText& row);

} // namespace Vestrel::Tests
