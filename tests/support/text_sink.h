#pragma once

#include <string>
#include <string_view>

#include "io/output_sink.h"

namespace test_support {

// Gathers what a report writes; whole once the sink was flushed.
class text_sink : public io::output_sink {
public:
    std::string gathered;

private:
    bool write_block(std::string_view block) override
    {
        gathered += block;
        return true;
    }
};

} // namespace test_support
