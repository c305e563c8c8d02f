#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "model/knowledge.h"
#include "model/registry_lists.h"

namespace model {

// What all explanations of a run share. Several threads may read it, and note what they told about.
class explain_context {
public:
    knowledge known;
    registry_lists lists;
    std::string root;      // from which places are counted; empty for none
    std::uint64_t now = 0; // FILETIME ticks

    // Takes note of a custom database, and of the key of one that is registered.
    void note(seen_database one) const
    {
        const std::scoped_lock lock(mutex_);
        seen_.push_back(std::move(one));
    }
    void note_told(const std::string& key) const
    {
        const std::scoped_lock lock(mutex_);
        told_.insert(key);
    }
    std::set<std::string> told() const
    {
        const std::scoped_lock lock(mutex_);
        return told_;
    }
    std::vector<seen_database> seen() const
    {
        const std::scoped_lock lock(mutex_);
        return seen_;
    }

private:
    mutable std::mutex mutex_;
    mutable std::vector<seen_database> seen_;
    mutable std::set<std::string> told_;
};

} // namespace model
