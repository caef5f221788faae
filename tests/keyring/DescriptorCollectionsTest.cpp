// SPDX-License-Identifier: Apache-2.0
// The two named descriptor collections of the state machine, and their reactors.
#include "platform/zell/DescriptorCollection.h"
#include "platform/zell/Errors.h"
#include "platform/zell/OwnedFd.h"
#include "tests/keyring/WatchTest.h"

#include <sys/eventfd.h>

#include <algorithm>

namespace Vestrel::Tests {

namespace {

using Descriptor = Orvo::Ptr<Zell::FileDescriptor>;

// One of the two collections, by its operations, and the handler that it drives.
struct Inotify {
    using Reactor = IntegrityKeyringSm::on_inotifyDescriptors;
    static constexpr const char* handler = "handleInotify";

    static const auto& map(IntegrityKeyringSm& sm) { return sm.inotifyDescriptors(); }

    static Descriptor is(IntegrityKeyringSm& sm, const Descriptor& descriptor) {
        return sm.inotifyDescriptorsIs(descriptor);
    }

    static Descriptor del(IntegrityKeyringSm& sm, const Orvo::String& name) {
        return sm.inotifyDescriptorsDel(name);
    }

    static void delAll(IntegrityKeyringSm& sm) { sm.inotifyDescriptorsDelAll(); }

    static int number(const KeyringWatcherInfo& info) { return info.inotifyFd; }
};

struct KeyringQueue {
    using Reactor = IntegrityKeyringSm::on_keyringWatchFileDescriptors;
    static constexpr const char* handler = "handleKeyringWatch";

    static const auto& map(IntegrityKeyringSm& sm) { return sm.keyringWatchFileDescriptors(); }

    static Descriptor is(IntegrityKeyringSm& sm, const Descriptor& descriptor) {
        return sm.keyringWatchFileDescriptorsIs(descriptor);
    }

    static Descriptor del(IntegrityKeyringSm& sm, const Orvo::String& name) {
        return sm.keyringWatchFileDescriptorsDel(name);
    }

    static void delAll(IntegrityKeyringSm& sm) { sm.keyringWatchFileDescriptorsDelAll(); }

    static int number(const KeyringWatcherInfo& info) { return info.readFd; }
};

// While one lives, the number 0 is a descriptor on which nothing waits to be read.
class QuietStandardInput {
public:
    QuietStandardInput() {
        const Zell::OwnedFd quiet(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
        EXPECT_EQ(dup2(quiet.get(), 0), 0);
    }

    ~QuietStandardInput() {
        close(0);
        if (before_) {
            dup2(before_.get(), 0);
        }
    }

    QuietStandardInput(const QuietStandardInput&) = delete;
    QuietStandardInput& operator=(const QuietStandardInput&) = delete;

private:
    const Zell::OwnedFd before_{fcntl(0, F_DUPFD_CLOEXEC, 3)};
};

template <class Collection>
class DescriptorCollections : public WatchTest {
protected:
    Descriptor at(const char* name) { return Collection::map(*sm).value(name); }

    std::size_t size() { return Collection::map(*sm).size(); }

    // A second descriptor for the number that is registered under the name.
    Descriptor twin(const char* name) {
        return Zell::readableDescriptor(name, Collection::number(sm->watcherInfos(name)));
    }

    // How often the handler went on behind its first check, for that name.
    std::ptrdiff_t handled(const std::string& name) const {
        return std::ranges::count(traces(), "5 " + std::string(Collection::handler) + ": " + name);
    }

    static void publishReadable(const Descriptor& descriptor) {
        descriptor->publisher().publish(0x103, std::int64_t{0}, std::int64_t{1});
    }

    // Whether its readiness runs the handler.
    bool reacts(const Descriptor& descriptor) {
        clear();
        publishReadable(descriptor);
        return handled(std::string(descriptor->name().view())) == 1;
    }
};

using Collections = testing::Types<Inotify, KeyringQueue>;
TYPED_TEST_SUITE(DescriptorCollections, Collections);

TYPED_TEST(DescriptorCollections, RefuseANullPointerAndStayAsTheyAre) {
    const Descriptor before = this->at(".ima");
    EXPECT_THROW(TypeParam::is(*this->sm, nullptr), Zell::NullArgumentError);
    EXPECT_EQ(this->size(), 4U);
    EXPECT_EQ(this->at(".ima"), before);
    EXPECT_EQ(this->traces(), TraceLines{});
}

TYPED_TEST(DescriptorCollections, KeepANewDescriptorUnderItsOwnName) {
    const auto added = Orvo::makeNode<Zell::FileDescriptor>(".new");
    EXPECT_EQ(TypeParam::is(*this->sm, added), added);
    EXPECT_EQ(this->at(".new"), added);
    EXPECT_EQ(this->size(), 5U);
    EXPECT_TRUE(added->publisher().hasActiveSubscriber());
}

TYPED_TEST(DescriptorCollections, RunTheHandlerOnceForANewDescriptor) {
    const Descriptor added = TypeParam::del(*this->sm, ".ima");
    this->clear();
    TypeParam::is(*this->sm, added);
    EXPECT_EQ(this->handled(".ima"), 1);
    EXPECT_EQ(this->traces().back(), "5 " + std::string(TypeParam::handler) + ": No more to read");
}

TYPED_TEST(DescriptorCollections, MoveTheReactorToTheDescriptorThatReplacesAnother) {
    const Descriptor before = this->at(".ima");
    const Descriptor after = this->twin(".ima");
    EXPECT_EQ(TypeParam::is(*this->sm, after), after);
    EXPECT_EQ(this->handled(".ima"), 1);
    EXPECT_EQ(this->at(".ima"), after);
    EXPECT_EQ(this->size(), 4U);
    EXPECT_FALSE(this->reacts(before));
    EXPECT_TRUE(this->reacts(after));
}

TYPED_TEST(DescriptorCollections, ReleaseButDoNotCloseTheDescriptorThatIsReplaced) {
    const int number = TypeParam::number(this->sm->watcherInfos(".ima"));
    const Descriptor before = this->at(".ima");
    TypeParam::is(*this->sm, this->twin(".ima"));
    EXPECT_EQ(before->refCount(), 1U);
    EXPECT_EQ(before->descriptor(), number);
    EXPECT_EQ(this->calls.callsOf({"close"}), std::vector<std::string>{});
}

TYPED_TEST(DescriptorCollections, KeepReactingWhenADescriptorReplacesItself) {
    const Descriptor same = this->at(".ima");
    TypeParam::is(*this->sm, same);
    EXPECT_EQ(this->handled(".ima"), 1);
    EXPECT_TRUE(this->reacts(same));
    EXPECT_EQ(same->refCount(), 2U);
}

TYPED_TEST(DescriptorCollections, ReturnNullForANameThatIsAbsent) {
    EXPECT_EQ(TypeParam::del(*this->sm, ".absent"), nullptr);
    EXPECT_EQ(this->size(), 4U);
    EXPECT_EQ(this->traces(), TraceLines{});
}

TYPED_TEST(DescriptorCollections, GiveUpADescriptorSilentlyAndUnclosed) {
    const Descriptor before = this->at(".ima");
    EXPECT_EQ(TypeParam::del(*this->sm, ".ima"), before);
    EXPECT_EQ(this->size(), 3U);
    EXPECT_EQ(this->at(".ima"), nullptr);
    EXPECT_EQ(this->traces(), TraceLines{}); // the handler finds no entry
    EXPECT_EQ(this->calls.calls(), std::vector<std::string>{});
    EXPECT_NE(fcntl(before->descriptor(), F_GETFD), -1);
    EXPECT_EQ(before->refCount(), 1U);
    EXPECT_FALSE(before->publisher().hasActiveSubscriber());
}

TYPED_TEST(DescriptorCollections, AreEmptiedTogether) {
    std::vector<Descriptor> members;
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        members.push_back(this->at(name));
    }
    TypeParam::delAll(*this->sm);
    EXPECT_EQ(this->size(), 0U);
    for (const Descriptor& member : members) {
        EXPECT_FALSE(member->publisher().hasActiveSubscriber());
        EXPECT_NE(fcntl(member->descriptor(), F_GETFD), -1);
    }
    this->clear();
    TypeParam::delAll(*this->sm);
    EXPECT_EQ(this->traces(), TraceLines{});
}

TYPED_TEST(DescriptorCollections, ReactToReadinessOnly) {
    const Descriptor descriptor = this->at(".ima");
    for (const Orvo::FieldId field : {0x0U, 0x3U, 0x100U, 0x101U, 0x102U, 0x104U, 0x203U}) {
        descriptor->publisher().publish(field, std::int64_t{0}, std::int64_t{1});
    }
    descriptor->nonBlockingIs(true);
    descriptor->notifyOnReadableIs(true);
    EXPECT_EQ(this->traces(), TraceLines{});
    EXPECT_TRUE(this->reacts(descriptor));
}

TYPED_TEST(DescriptorCollections, ReactUnderTheNameOfTheDescriptor) {
    for (const char* const name : IntegrityKeyringSm::keyringNames) {
        EXPECT_TRUE(this->reacts(this->at(name))) << name;
        EXPECT_EQ(this->traces().size(),
                  static_cast<std::size_t>(
                      std::ranges::count_if(this->traces(), [](const std::string& line) {
                          return line.find(TypeParam::handler) != std::string::npos;
                      })));
    }
}

// As a host has it that was started without a standard input.
TYPED_TEST(DescriptorCollections, ReactToADescriptorWhoseNumberIsZero) {
    const QuietStandardInput quiet;
    const Descriptor descriptor = this->at(".ima");
    const int before = descriptor->descriptor();
    descriptor->descriptorIs(0);
    EXPECT_TRUE(this->reacts(descriptor));
    ASSERT_EQ(this->calls.callsOf({"read"}).size(), 1U);
    EXPECT_EQ(this->firstNumber(this->calls.callsOf({"read"}).front()), 0);
    descriptor->descriptorIs(before);
}

TYPED_TEST(DescriptorCollections, ReactToNothingWhileNotificationsAreOff) {
    this->sm->hasNotificationActiveIs(false);
    EXPECT_FALSE(this->reacts(this->at(".ima")));
    this->sm->hasNotificationActiveIs(true);
    EXPECT_TRUE(this->reacts(this->at(".ima")));
}

TYPED_TEST(DescriptorCollections, ReleaseTheirDescriptorsWithTheStateMachine) {
    const Descriptor member = this->at(".ima");
    this->stop();
    EXPECT_EQ(member->refCount(), 1U);
}

TYPED_TEST(DescriptorCollections, DoNothingWhileTheStateMachineGoes) {
    const Descriptor extra = this->twin(".ima");
    IntegrityKeyringSm* const going = this->sm.get();
    bool wasDying = false;
    this->onTrace = [&](const std::string& line) {
        if (line == "5 handleDelete: ") {
            wasDying = going->refCount() == 0;
            TypeParam::is(*going, extra);
            TestFixture::publishReadable(extra);
        }
    };
    this->stop();
    EXPECT_TRUE(wasDying);
    EXPECT_EQ(this->handled(".ima"), 0);
}

template <class Collection>
using Reactors = DescriptorCollections<Collection>;
TYPED_TEST_SUITE(Reactors, Collections);

TYPED_TEST(Reactors, FollowADescriptorFromOneToAnother) {
    typename TypeParam::Reactor reactor(*this->sm);
    const auto first = Orvo::makeNode<Zell::FileDescriptor>(".ima");
    const auto second = Orvo::makeNode<Zell::FileDescriptor>(".ima");
    reactor.on_selfPublisher(this->sm.get(), nullptr, first);
    EXPECT_TRUE(first->publisher().subscribed(reactor));
    reactor.on_selfPublisher(this->sm.get(), first, second);
    EXPECT_FALSE(first->publisher().subscribed(reactor));
    EXPECT_TRUE(second->publisher().subscribed(reactor));
    reactor.on_selfPublisher(this->sm.get(), second, nullptr);
    EXPECT_FALSE(second->publisher().subscribed(reactor));
    reactor.on_selfPublisher(this->sm.get(), nullptr, nullptr);
}

TYPED_TEST(Reactors, LetGoAtTheShutdown) {
    typename TypeParam::Reactor reactor(*this->sm);
    const auto descriptor = Orvo::makeNode<Zell::FileDescriptor>(".ima");
    reactor.on_selfPublisher(this->sm.get(), nullptr, descriptor);
    reactor.on_shutdown(this->sm.get(), nullptr);
    EXPECT_TRUE(descriptor->publisher().subscribed(reactor));
    reactor.on_shutdown(this->sm.get(), descriptor);
    EXPECT_FALSE(descriptor->publisher().subscribed(reactor));
}

TYPED_TEST(Reactors, CallTheHandlerWhenEitherPointerIsSet) {
    typename TypeParam::Reactor reactor(*this->sm);
    const Descriptor set = this->at(".ima");
    reactor.on_self0(this->sm.get(), false, ".ima", nullptr, set);
    EXPECT_EQ(this->handled(".ima"), 1);
    reactor.on_self0(this->sm.get(), true, ".ima", set, nullptr);
    EXPECT_EQ(this->handled(".ima"), 2);
    reactor.on_self0(this->sm.get(), false, ".ima", nullptr, nullptr);
    EXPECT_EQ(this->handled(".ima"), 2);
}

TYPED_TEST(Reactors, DoNothingForAStateMachineWithoutReferences) {
    IntegrityKeyringSm* const going = this->sm.get();
    typename TypeParam::Reactor reactor(*going);
    const Descriptor set = this->at(".ima");
    bool wasDying = false;
    this->onTrace = [&](const std::string& line) {
        if (line == "5 handleDelete: ") {
            wasDying = going->refCount() == 0;
            reactor.on_self0(going, false, ".ima", nullptr, set);
            reactor.on_self0(going, false, ".ima", set, nullptr);
        }
    };
    this->stop();
    EXPECT_TRUE(wasDying);
    EXPECT_EQ(this->handled(".ima"), 0);
}

// A node that counts the calls of its handler, since those of the state machine return silently
// once the entry is gone.
class Counter final : public Orvo::Node {
public:
    struct Tag {
        static constexpr const char* pelbinName = "Vestrel::Tests::Counter::descriptors";
    };

    void handle(const Orvo::String& name) { names.emplace_back(name.view()); }

    std::vector<std::string> names;
    Zell::DescriptorCollection<Counter, Tag, &Counter::handle> descriptors{*this};
};

TEST(DescriptorCollection, RunsTheHandlerOnceWhenAMemberIsDeleted) {
    const auto counter = Orvo::makeNode<Counter>();
    counter->descriptors.is(Orvo::makeNode<Zell::FileDescriptor>("a"));
    counter->descriptors.is(Orvo::makeNode<Zell::FileDescriptor>("b"));
    counter->names.clear();
    counter->descriptors.del("absent");
    EXPECT_EQ(counter->names, std::vector<std::string>{});
    counter->descriptors.del("a");
    EXPECT_EQ(counter->names, std::vector<std::string>{"a"});
    counter->descriptors.delAll();
    EXPECT_EQ(counter->names, (std::vector<std::string>{"a", "b"}));
}

} // namespace

} // namespace Vestrel::Tests
