// What reaches a block device that nothing else uses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct DeviceCounts {
    int64_t bytesWritten;
    int64_t flushes;  // forced writes
};

// Since the device was made; nothing when there is no such device. Its name is as below /sys/block.
std::optional<DeviceCounts> readDevice(const std::string& name);
