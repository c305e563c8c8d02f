#include "front/compared_inputs.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "front/discovery.h"
#include "front/progress.h"
#include "front/stdin_stream_ex.h"
#include "front/volume_targets.h"
#include "model/stored_path.h"
#include "platform/redirection.h"

namespace front {

namespace {

// The files of one side, by their places below its root, in which letter case does not count.
using placed_files = std::map<std::string, std::string>;

class two_sides {
public:
    two_sides(const request::sdb_opts& options, files::file_tree& tree,
              const model::run_targets& targets, outputs& files, const input_work& inputs,
              const input_output& out)
        : options_(options), tree_(tree), targets_(targets), files_(files), inputs_(inputs),
          out_(out), told_(options, out.notices)
    {}

    void compare()
    {
        const bool are_volumes = options_.partition_given;
        for (const std::string& side : {root(), options_.diff_path}) {
            if (!tree_.is_folder(side)) { // all of the other would count as added or removed
                out_.notices.fail("Prob reading folder %s: %s\n", side.c_str(), "is no folder");
                return;
            }
        }
        placed_files before;
        placed_files after;
        if (are_volumes &&
            !(enter_volumes(before, root(), targets_) &&
              enter_volumes(after, options_.diff_path, found_on(options_.diff_path)))) {
            return;
        }
        if (!are_volumes) {
            before = files_below(root());
            after = files_below(options_.diff_path);
        }
        told_.set_total(before.size() + after.size());
        for (const auto& [place, path] : before) {
            if (const auto other = after.find(place); other != after.end()) {
                tell_pair(path, other->second);
                after.erase(other);
            } else {
                lone_before_.push_back(path);
            }
        }
        compare_by_id(after);
        if (compared_ == 0 && lone_ == 0) {
            out_.notices.fail("no database on either side\n");
        }
    }

private:
    const std::string& root() const
    {
        return options_.partition_given ? options_.volume_text : options_.enumdir_path;
    }

    // What stands in the place of a lone database, where that is none.
    void say_what_is_there(const std::string& path, const std::string& other_root)
    {
        const std::string& own_root =
            other_root == options_.diff_path ? root() : options_.diff_path;
        if (!path.starts_with(own_root)) {
            return;
        }
        const std::size_t name = path.find_first_not_of("/\\", own_root.size());
        const std::string there = tree_.walkable_path(
            platform::join_path(other_root, path.substr(std::min(name, path.size()))));
        if (!tree_.is_missing(there) && !begins_as_database(tree_, there).value_or(false)) {
            out_.notices.say("%s stands in the place of %s, and is no database\n", there.c_str(),
                             path.c_str());
        }
    }

    // A file that has no counterpart in its place.
    struct lone_file {
        std::string path;
        input_work::likeness is;
    };

    std::vector<lone_file> read_lone(const std::vector<std::string>& paths)
    {
        std::vector<lone_file> made;
        for (const std::string& path : paths) {
            if (auto is = inputs_.likeness_of(path, out_)) {
                made.push_back({path, *std::move(is)});
            } else {
                told_.note_done(path);
            }
        }
        return made;
    }

    // Those that have no counterpart in their place, by identifier: of several first those of the same bytes.
    void compare_by_id(const placed_files& after)
    {
        std::vector<std::string> paths;
        std::ranges::transform(after, std::back_inserter(paths), &placed_files::value_type::second);
        const std::vector<lone_file> come = read_lone(paths);
        const std::vector<lone_file> gone = read_lone(lone_before_);
        std::vector<const lone_file*> found(gone.size());
        std::set<const lone_file*> taken;
        for (const bool by_bytes : {true, false}) {
            const auto key_of = [&](const lone_file& one) {
                return by_bytes ? one.is.id + one.is.digest : one.is.id;
            };
            std::map<std::string, std::deque<const lone_file*>> come_by_key;
            for (const lone_file& one : come) {
                if (!one.is.id.empty() && !taken.contains(&one)) {
                    come_by_key[key_of(one)].push_back(&one);
                }
            }
            for (std::size_t i = 0; i < gone.size(); ++i) {
                const auto others = come_by_key.find(key_of(gone[i]));
                if (found[i] == nullptr && others != come_by_key.end() && !others->second.empty()) {
                    found[i] = others->second.front();
                    others->second.pop_front();
                    taken.insert(found[i]);
                }
            }
        }
        for (std::size_t i = 0; i < gone.size(); ++i) {
            if (found[i] != nullptr) {
                tell_pair(gone[i].path, found[i]->path);
            } else {
                tell_lone(gone[i].path, {});
            }
        }
        for (const lone_file& one : come) {
            if (!taken.contains(&one)) {
                tell_lone({}, one.path);
            }
        }
    }

    void tell_pair(const std::string& before, const std::string& after)
    {
        compared_ += inputs_.tell_difference(before, after, out_) ? 1 : 0;
        told_.note_done(before);
        told_.note_done(after);
    }

    void tell_lone(const std::string& before, const std::string& after)
    {
        ++lone_;
        say_what_is_there(before, options_.diff_path);
        say_what_is_there(after, root());
        inputs_.tell_lone_database(before, after, out_);
        told_.note_done(before.empty() ? after : before);
    }

    model::run_targets found_on(const std::string& volume)
    {
        model::run_targets found;
        find_volumes(found, options_, volume, tree_, out_.notices);
        for (const std::string& root : found.volumes) {
            add_databases_of(found, options_, root, tree_, out_.notices);
        }
        return found;
    }

    // False where there is no volume to look at.
    bool enter_volumes(placed_files& placed, const std::string& side,
                       const model::run_targets& found)
    {
        if (found.volumes.empty()) {
            out_.notices.fail("Prob reading volume %s: %s\n", side.c_str(),
                              "has no Windows folder");
        }
        for (const std::string& root : found.volumes) {
            const std::string number =
                found.volumes.size() > 1 ? root.substr(root.find_last_of("/\\") + 1) + '/' : "";
            for (const std::string& path : found.files) {
                const auto below = model::place_below(model::parts_of(path), root);
                if (below || found.volumes.size() == 1) {
                    enter(placed, path, number + below.value_or(path));
                }
            }
        }
        return !found.volumes.empty();
    }

    placed_files files_below(const std::string& root)
    {
        placed_files placed;
        stdin_stream_ex walk(options_, tree_, out_.notices);
        walk.start_walk(root, options_.num_subdirs, options_.filter_list);
        for (std::string path; walk.stdin_list_next(path);) {
            if (begins_as_database(tree_, path).value_or(true)) {
                enter(placed, path, model::place_below(model::parts_of(path), root).value_or(path));
            }
        }
        return placed;
    }

    // Enters a file that is none of the run's own.
    void enter(placed_files& placed, const std::string& path, std::string place)
    {
        if (files_.check_entry(path, out_.notices) == outputs::entry::other) {
            // Of names that differ by case alone each has its own place.
            while (!placed.try_emplace(place, path).second) {
                place += '/';
            }
        }
    }

    const request::sdb_opts& options_;
    files::file_tree& tree_;
    const model::run_targets& targets_;
    outputs& files_;
    const input_work& inputs_;
    const input_output& out_;
    progress told_;
    std::vector<std::string> lone_before_;
    std::uint64_t compared_ = 0;
    std::uint64_t lone_ = 0;
};

} // namespace

void compare_inputs(const request::sdb_opts& options, files::file_tree& tree,
                    const model::run_targets& targets, outputs& files, const input_work& inputs,
                    const input_output& out)
{
    const platform::wow64_redirect_adt redirection;
    if (!options.sdb_path.empty()) {
        inputs.tell_difference(options.sdb_path, options.diff_path, out);
    } else {
        two_sides(options, tree, targets, files, inputs, out).compare();
    }
}

} // namespace front
