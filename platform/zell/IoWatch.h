// SPDX-License-Identifier: Apache-2.0
// A descriptor that the event loop watches for reading or writing, for those who speak with others.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Ptr.h"
#include "platform/zell/ActivityManager.h"

#include <memory>

namespace Zell {

// Runs its handler in every turn of the loop in which the descriptor is ready for what was asked
// for, or its other end is gone; so the handler must read, write or ask for something else. The
// handler may destroy the watch. The descriptor must stay open until the watch is gone.
class VESTREL_EXPORT IoWatch {
public:
    enum class Readiness { none, reading, writing };

    // Throws std::system_error.
    IoWatch(const Orvo::Ptr<ActivityManager>& manager, int descriptor, Readiness readiness,
            ActivityManager::Handler handler);
    ~IoWatch();
    IoWatch(const IoWatch&) = delete;
    IoWatch& operator=(const IoWatch&) = delete;

    // With `none` only the end of the other side is reported. Throws std::system_error.
    void readinessIs(Readiness value);

private:
    static int onReady(sd_event_source* source, int descriptor, std::uint32_t events,
                       void* watch) noexcept;

    Orvo::Ptr<ActivityManager> manager_;
    std::shared_ptr<ActivityManager::Handler> handler_; // shared with the call of it
    Readiness readiness_;
    sd_event_source* source_ = nullptr;
};

} // namespace Zell
