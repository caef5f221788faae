// SPDX-License-Identifier: Apache-2.0
// Level-triggered sources of the event loop.
#include "platform/zell/IoWatch.h"

#include <systemd/sd-event.h>

#include <sys/epoll.h>

#include <system_error>
#include <utility>

namespace Zell {

namespace {

std::uint32_t epollEvents(IoWatch::Readiness readiness) {
    switch (readiness) {
    case IoWatch::Readiness::reading:
        return EPOLLIN;
    case IoWatch::Readiness::writing:
        return EPOLLOUT;
    case IoWatch::Readiness::none:
        break;
    }
    return 0;
}

void check(int result, const char* call) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), call);
    }
}

} // namespace

IoWatch::IoWatch(const Orvo::Ptr<ActivityManager>& manager, int descriptor, Readiness readiness,
                 ActivityManager::Handler handler)
    : manager_(manager), handler_(std::make_shared<ActivityManager::Handler>(std::move(handler))),
      readiness_(readiness) {
    check(sd_event_add_io(manager_->event_, &source_, descriptor, epollEvents(readiness), onReady,
                          this),
          "sd_event_add_io");
}

IoWatch::~IoWatch() {
    sd_event_source_disable_unref(source_);
}

void IoWatch::readinessIs(Readiness value) {
    if (std::exchange(readiness_, value) != value) {
        check(sd_event_source_set_io_events(source_, epollEvents(value)),
              "sd_event_source_set_io_events");
    }
}

int IoWatch::onReady(sd_event_source* /*source*/, int /*descriptor*/, std::uint32_t /*events*/,
                     void* watch) noexcept {
    const auto* const mine = static_cast<IoWatch*>(watch);
    const Orvo::Ptr<ActivityManager> manager = mine->manager_;
    const std::shared_ptr<ActivityManager::Handler> handler = mine->handler_;
    manager->guarded(*handler);
    return 0;
}

} // namespace Zell
