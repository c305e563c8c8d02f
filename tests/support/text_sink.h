#pragma once

#include <string>
#include <string_view>

#include "uni/output_sink.h"

namespace test_support {

// Gathers what a report writes; whole once the sink was flushed.
class text_sink : public uni::output_sink {
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
