// SPDX-License-Identifier: Apache-2.0
// What the descriptors of a keyring may be said to have given, through the state machine's
// handlers.
//
// An input is a row of reads: a byte whose lowest bit says of which descriptor (the watch queue
// when it is set), and whose others say how many of the bytes behind it are read at once. The
// number of a key below 8 stands for the key of that number in the keyring.
#include "keymodel/IntegrityConstants.h"
#include "keymodel/TemporarySuffix.h"
#include "keyring/DirectoryEvent.h"
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/WatchNotification.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/TraceHandle.h"
#include "tests/fakes/KeyService.h"
#include "tests/fakes/SystemCalls.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/PrivateDirectories.h"

#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Vestrel;
using Tests::require;
namespace fs = std::filesystem;

constexpr const char* keyringName = ".ima";
constexpr std::string_view accepted = "key ";

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content(accepted.size(), '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(file.gcount()));
    return content;
}

// Which files are on record, as the records of the directory tell. The disk stays as it is.
class Record {
public:
    explicit Record(fs::path directory) : directory_(std::move(directory)) {}

    void buffer(std::string_view bytes) {
        std::span<const char> rest(bytes);
        while (const auto event = bytes.size() < DirectoryEvent::headerSize
                                      ? std::nullopt
                                      : DirectoryEvent::taken(rest)) {
            if (!event->name.ends_with(temporarySuffix)) {
                changed(*event, directory_ / event->name);
            }
        }
    }

    // At the end of the reads: the files that have moved away for good.
    void settle() {
        for (const auto& [cookie, path] : moves_) {
            removed(path);
        }
        moves_.clear();
    }

    // Whether a file went that was not on record: no kernel tells that, and it ends the process.
    bool isImpossible() const { return isImpossible_; }

    const std::set<std::string>& files() const { return files_; }

private:
    void changed(const DirectoryEvent& event, const fs::path& path) {
        const bool isKnown = files_.contains(path);
        if ((event.mask & IN_CLOSE_WRITE) != 0) {
            loaded(path);
        } else if ((event.mask & IN_DELETE) != 0 && isKnown) {
            removed(path);
        } else if ((event.mask & IN_MOVED_FROM) != 0) {
            if (isKnown) {
                moves_[event.cookie] = path;
            }
        } else if ((event.mask & IN_MOVED_TO) != 0) {
            loaded(path);
            if (const auto move = moves_.find(event.cookie); move != moves_.end()) {
                removed(move->second);
                moves_.erase(move);
            }
        }
    }

    void loaded(const fs::path& path) {
        std::error_code gone;
        if (fs::is_regular_file(path, gone) && contentOf(path) == accepted) {
            files_.insert(path);
        }
    }

    void removed(const std::string& path) { isImpossible_ |= files_.erase(path) == 0; }

    const fs::path directory_;
    std::set<std::string> files_;
    std::map<std::uint32_t, std::string> moves_;
    bool isImpossible_ = false;
};

struct Read {
    bool isOfQueue;
    std::string bytes;
};

std::vector<Read> readsOf(std::string_view input) {
    std::vector<Read> reads;
    while (!input.empty()) {
        const auto head = static_cast<std::uint8_t>(input.front());
        const std::string_view bytes = input.substr(1, head >> 1U);
        input.remove_prefix(1 + bytes.size());
        reads.push_back({(head & 1U) != 0, std::string(bytes)});
    }
    return reads;
}

// A state machine beside the model of the key service, which takes what begins with "key ": two of
// four files hold the same, one is not taken. None is on record before its first event, as none is
// a certificate. A key is there without a file.
class Setting {
public:
    Setting() {
        Tests::privateDirectoriesEnter();
        for (const char* const name : IntegrityKeyringSm::keyringNames) {
            fs::create_directories(IntegrityConstants().keyringPathPrefix(name).view());
        }
        for (const auto& [name, content] :
             {std::pair{"a", "key 1"}, {"b", "key 2"}, {"c", "key 1"}, {"d", "none"}}) {
            std::ofstream(directory_ / name) << content;
        }
        Zell::traceSinkIs([](const Zell::TraceLine& /*line*/) {});
        Zell::traceLevelIs(5);
        Zell::LogFacility::sinkIs([](const Zell::LogMessage& /*message*/) {});
        prepare();
        stateMachine_ = integrityKeyringSmFactory(coll_);
    }

    void play(const std::vector<Read>& reads) {
        {
            Tests::SystemCalls calls;
            judge(played(reads, calls));
        }
        forget();
    }

private:
    Record played(const std::vector<Read>& reads, Tests::SystemCalls& calls) {
        Record record(directory_);
        for (std::size_t i = 0; i < reads.size() && !record.isImpossible(); ++i) {
            Read read = reads[i];
            if (read.isOfQueue) {
                keyNumberReplace(read.bytes);
            } else {
                record.buffer(read.bytes);
            }
            calls.feedRead(descriptor(read.isOfQueue), read.bytes);
            if (i + 1 == reads.size() || reads[i + 1].isOfQueue != read.isOfQueue) {
                handle(calls, read.isOfQueue, record);
            }
        }
        return record;
    }

    void prepare() {
        keys_.keyring(".ima");
        keys_.keyring(".secondary_trusted_keys");
        keys_.keyring(".builtin_trusted_keys", Tests::readOnlyKeyring);
        keys_.keyring(".machine", Tests::readOnlyKeyring);
        keys_.addKey(".ima", "fileless");
        keys_.judgeWith([](Tests::KeyService::Bytes content) {
            const std::string_view text(reinterpret_cast<const char*>(content.data()),
                                        content.size());
            return text.starts_with(accepted) ? 0 : EBADMSG;
        });
    }

    // The number stands in the last four bytes of a whole record.
    void keyNumberReplace(std::string& bytes) const {
        if (bytes.size() < WatchNotification::size) {
            return;
        }
        const auto all = keys_.keysOf(keyringName);
        const std::size_t place = WatchNotification::size - sizeof(key_serial_t);
        key_serial_t number = 0;
        std::memcpy(&number, &bytes[place], sizeof number);
        if (number >= 0 && number < 8 && static_cast<std::size_t>(number) < all.size()) {
            std::memcpy(&bytes[place], &all[static_cast<std::size_t>(number)], sizeof number);
        }
    }

    int descriptor(bool isQueue) const {
        const KeyringWatcherInfo info = stateMachine_->watcherInfos(keyringName);
        return isQueue ? info.readFd : info.inotifyFd;
    }

    // The handler takes all that was fed, or up to an empty read.
    void handle(Tests::SystemCalls& calls, bool isQueue, Record& record) {
        calls.feedReadError(descriptor(isQueue), EAGAIN);
        if (isQueue) {
            stateMachine_->handleKeyringWatch(keyringName);
        } else {
            record.settle();
            if (record.isImpossible()) {
                return;
            }
            stateMachine_->handleInotify(keyringName);
        }
        require(calls.pending() == 0, "the handler reads until there is no more");
    }

    void judge(const Record& record) const {
        if (record.isImpossible()) {
            return;
        }
        const auto keyColl = coll_->keyring(keyringName);
        std::set<std::string> files;
        for (auto entry = keyColl->fileToDescription().iterator(); entry; ++entry) {
            files.insert(std::string(entry.key().view()));
            const auto carriers = keyColl->descriptionToFile(*entry);
            require(carriers && carriers->filePathHas(entry.key()),
                    "each file is among those of its description");
        }
        require(files == record.files(), "the files on record are those that the events leave");
    }

    // As before the first input. A state machine anew would wait for the kernel each time.
    void forget() {
        const auto keyColl = coll_->keyring(keyringName);
        for (auto file = keyColl->fileToDescription().iterator(); file; ++file) {
            stateMachine_->removeFile(keyringName, Orvo::String(file.key()));
        }
        keys_.clear(keyringName);
        keys_.collectGarbage();
        for (auto key = keyColl->key().iterator(); key; ++key) {
            keyColl->keyDel(key->serial);
        }
        keys_.addKey(keyringName, "fileless");
        stateMachine_->handleKeyringWatch(keyringName);
        keys_.clearCalls();
        require(keyColl->descriptionToFile().size() == 0 && keyColl->key().size() == 1,
                "nothing but the key without a file is left");
    }

    const fs::path directory_{IntegrityConstants().keyringPathPrefix(keyringName).view()};
    Tests::KeyService keys_;
    Orvo::Ptr<IntegrityKeyringColl> coll_ = Orvo::makeNode<IntegrityKeyringColl>();
    Orvo::Ptr<IntegrityKeyringSm> stateMachine_;
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Setting& setting = *new Setting; // ends with the process
    auto reads = readsOf(Tests::textOf(data, size));
    std::erase_if(reads, [](const Read& read) { return read.bytes.empty(); }); // the end of a file
    setting.play(reads);
    return 0;
}
