// SPDX-License-Identifier: Apache-2.0
// One step of a scenario, and the text in which scenarios are written down.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

/// A verb and its words. PATH is PLACE/NAME; a place is "ima", "secondary", "builtin", "machine"
/// (the certificate directories) or "out" (a directory of the same file system that nobody
/// watches); a RING is one of the first four; CONTENT is a name of Contents.
///
///     write PATH CONTENT     opens, writes and closes
///     open HANDLE PATH CONTENT, close HANDLE     the same in two steps
///     move PATH PATH, delete PATH, mkdir PATH, fifo PATH
///     symlink PATH PATH      the second is what the link leads to
///     add RING CONTENT       another process adds the key
///     link RING CONTENT      another process links its own key of that content
///     unlink RING CONTENT    another process unlinks the key of that description, if there is one
///     clear RING             another process unlinks everything
///                            (all four are refused by "builtin" and "machine")
///     loop                   the event loop runs until nothing is ready; everything is compared
///     restart                the state machine is ended, if it runs, and made; all is compared
struct Step {
    std::string verb;
    std::vector<std::string> words;

    friend bool operator==(const Step&, const Step&) = default;
};

using Steps = std::vector<Step>;

std::string textOf(const Step& step);
/// One step a line.
std::string textOf(const Steps& steps);
/// Of lines, or of steps that are separated by ";".
Steps stepsOf(std::string_view text);

/// "ima" of "ima/a".
std::string placeOf(const std::string& path);
/// "a" of "ima/a".
std::string nameOf(const std::string& path);
/// Where a PATH of a step really is.
std::string realPath(const std::string& path);

} // namespace Vestrel::Tests
