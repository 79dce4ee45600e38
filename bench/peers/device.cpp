#include "device.h"

#include <fstream>
#include <vector>

std::optional<DeviceCounts> readDevice(const std::string& name) {
    constexpr size_t writtenSectors = 6;
    constexpr size_t flushRequests = 15;
    constexpr int64_t sectorSize = 512;
    std::ifstream file("/sys/block/" + name + "/stat");
    std::vector<int64_t> fields;
    for (int64_t field = 0; file >> field;)
        fields.push_back(field);
    if (name.empty() || fields.size() <= flushRequests)
        return std::nullopt;
    return DeviceCounts{fields[writtenSectors] * sectorSize, fields[flushRequests]};
}
