#pragma once

#include <stdexcept>
#include <sys/mount.h>

#include "PrivateWorld.h"

namespace support {

/// A crontab program that costs little to run, over the crontabs of the recording one.
class QuickCrontab {
public:
    QuickCrontab()
    {
        useRecordingCrontab();
        if (mount(ORV_QUICK_CRONTAB, program, nullptr, MS_BIND, nullptr) != 0)
            throw std::runtime_error("the quick crontab cannot be put in place");
    }
    ~QuickCrontab() { umount2(program, MNT_DETACH); }
    QuickCrontab(const QuickCrontab&) = delete;
    QuickCrontab& operator=(const QuickCrontab&) = delete;

private:
    static constexpr const char* program = "/usr/bin/crontab";
};

} // namespace support
