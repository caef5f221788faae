// SPDX-License-Identifier: Apache-2.0
// Records chosen system calls of the code under test and prepares their failures.
#pragma once

#include "tests/fakes/FailureScript.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

/// The calls are pipe2, ioctl, inotify_init1, inotify_add_watch, inotify_rm_watch, read, close,
/// socket, bind and unlink, made by anyone in the process through the dynamic linker: the code
/// under test and the libraries that it uses, but not libc's own insides (streams, directory
/// walks). While none of these objects exists they pass straight through. One at a time, one
/// thread.
///
/// Arguments are recorded in decimal, flags in hexadecimal: "pipe2 0x80", "ioctl 8 0x5760 256",
/// "inotify_init1 0x800", "inotify_add_watch 7 /dir 0x2c8", "inotify_rm_watch 7 1", "read 7 16",
/// "close 7", "socket 1 0x802 0", "bind 7 /path 110" (with the length of the address), "unlink
/// /path".
class SystemCalls {
public:
    using Bytes = std::span<const std::uint8_t>;

    /// Starts recording.
    SystemCalls();
    ~SystemCalls();
    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;

    void pause() { isRecording_ = false; }

    void resume() { isRecording_ = true; }

    void clear() { calls_.clear(); }

    const std::vector<std::string>& calls() const { return calls_; }

    /// Only the calls of these names, in their order.
    std::vector<std::string> callsOf(std::initializer_list<std::string_view> names) const;

    /// All bytes of the address that was last handed to bind.
    const std::vector<std::uint8_t>& boundAddress() const { return boundAddress_; }

    /// The n-th call of that name from now, of whatever descriptor, returns -1 with `error` and
    /// does nothing; only close closes all the same, as the kernel does.
    void failNth(std::string_view name, std::size_t nth, int error);

    void failNext(std::string_view name, int error) { failNth(name, 1, error); }

    /// The next call of that name returns `value` and leaves `error` in errno.
    void answerNext(std::string_view name, long value, int error = 0);

    /// What the next reads of a descriptor give, one entry each, before the descriptor itself is
    /// read again. Bytes that do not fit into the reader's buffer are lost, as with datagrams.
    void feedRead(int descriptor, Bytes bytes);
    void feedRead(int descriptor, std::string_view text);
    void feedReadError(int descriptor, int error);
    void feedReadEnd(int descriptor);

    /// bind and unlink of the path `from` work on `to`; they are recorded as they were called.
    void redirect(const std::string& from, const std::string& to) { redirected_[from] = to; }

    /// Prepared answers and reads that nobody has taken.
    std::size_t pending() const;

    // --- The hooks' way in ----------------------------------------------------------------------

    static SystemCalls* current();

    bool isRecording() const { return isRecording_; }

    void record(const std::string& call) { calls_.push_back(call); }

    void recordAddress(Bytes address) { boundAddress_.assign(address.begin(), address.end()); }

    std::optional<Answer> scripted(std::string_view name) { return script_.take(name); }

    /// The read that was prepared for this descriptor; errno is set when it is an error.
    std::optional<ssize_t> fedRead(int descriptor, void* buffer, std::size_t size);
    /// The path to use in the place of `path`.
    const char* redirected(const char* path) const;

private:
    struct Read {
        std::vector<std::uint8_t> bytes;
        int error;
    };

    bool isRecording_ = true;
    std::vector<std::string> calls_;
    std::vector<std::uint8_t> boundAddress_;
    FailureScript script_;
    std::map<int, std::deque<Read>> reads_;
    std::map<std::string, std::string, std::less<>> redirected_;
};

} // namespace Vestrel::Tests
