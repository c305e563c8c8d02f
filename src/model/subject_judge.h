#pragma once

#include <cstdint>
#include <memory>

#include "model/examination.h"
#include "model/knowledge.h"
#include "model/record_groupings.h"
#include "request/bounds.h"

namespace model {

// Judges one subject of a database after the other, on one thread. What it takes to judge a text or a
// definition is kept, as many refer to one. What it is made of must outlive it.
class subject_judge {
public:
    subject_judge(const examined_database& examined, const record_groupings& groupings,
                  const request::bounds& bounds);
    ~subject_judge();
    subject_judge(const subject_judge&) = delete;
    subject_judge& operator=(const subject_judge&) = delete;

    // What a subject gets, and what is unusual about it.
    void look_at(subject& seen, std::uint32_t record);
    // What one gets about which nothing is found, which costs less.
    void look_at_plain(subject& seen, std::uint32_t record);
    // A fix by its reference, which may be its definition itself; null for one that is not known.
    const known_fix* fix_of(const fix_use& use);

private:
    class state;
    std::unique_ptr<state> state_;
};

} // namespace model
