#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/devices.h"

namespace test_support {

// What a device in memory holds, answers and is asked.
struct memory_disk {
    std::vector<std::uint8_t> bytes = {};
    std::string name = {}; // of the device; empty: any
    bool knows_extended_geometry = true;
    bool knows_geometry = true;
    bool knows_partition = false;
    bool knows_extended_partition = false;
    platform::drive_geometry geometry = {0, 12, 0, 0, 512};
    std::int64_t size = -1; // that it claims; -1: that of the bytes
    platform::partition_facts partition = {1 << 20, 0, 3};
    std::int64_t unreadable = -1; // a byte that cannot be read, nor can what is read with it
    std::size_t reads_that_fit = ~std::size_t{0}; // the one behind them finds no memory

    std::vector<std::pair<std::string, platform::device_access>> opened = {};
    std::vector<std::pair<std::int64_t, std::size_t>> reads = {}; // offset and size
};

// Stands in for platform::open_device. The disk must outlive what is opened.
platform::device_opener opener_of(memory_disk& disk);

} // namespace test_support
