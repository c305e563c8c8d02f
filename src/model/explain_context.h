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
    const run_targets* targets = nullptr; // with what the registry says; null for nothing
    std::uint64_t now = 0;                // FILETIME ticks

    // From which places are counted; none where nothing tells.
    const std::vector<std::string>& roots() const
    {
        static const std::vector<std::string> none;
        return targets != nullptr ? targets->roots : none;
    }
    const registry_lists& lists_for(const std::string& path) const
    {
        static const registry_lists none;
        const registry_lists* const found = targets != nullptr ? targets->lists_for(path) : nullptr;
        return found != nullptr ? *found : none;
    }

    // Takes note of a custom database, and of one that is registered.
    void note(seen_database one) const
    {
        const std::scoped_lock lock(mutex_);
        seen_.push_back(std::move(one));
    }
    void note_told(const installed_database& one) const
    {
        const std::scoped_lock lock(mutex_);
        told_.insert(&one);
    }
    std::set<const installed_database*> told() const
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
    mutable std::set<const installed_database*> told_;
};

} // namespace model
