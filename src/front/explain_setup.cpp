#include "front/explain_setup.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "io/byte_source.h"
#include "model/software_hive.h"
#include "model/stored_path.h"
#include "platform/directories.h"
#include "sdb/database.h"

namespace front {

namespace {

constexpr std::uint64_t longest_knowledge = 0x1000000;

std::optional<std::string> text_of_file(files::file_tree& tree, const std::string& path,
                                        std::string& reason)
{
    const auto source = tree.open(path, reason);
    if (!source) {
        return std::nullopt;
    }
    io::byte_vector bytes;
    if (source->size() > longest_knowledge) {
        reason = "is too long";
        return std::nullopt;
    }
    io::read_source(bytes, *source, longest_knowledge);
    if (source->has_failed()) {
        reason = "reading failed";
        return std::nullopt;
    }
    return std::string(bytes.begin(), bytes.end());
}

bool add_files(model::knowledge& known, const request::sdb_opts& options, files::file_tree& tree,
               io::notices* notices)
{
    for (const std::string& path : options.knowledge_paths) {
        std::string reason;
        const std::optional<std::string> text = text_of_file(tree, path, reason);
        const auto bad_line = text ? known.add(*text) : std::nullopt;
        if (!text && notices != nullptr) {
            notices->fail("Prob reading knowledge %s: %s\n", path.c_str(), reason.c_str());
        } else if (bad_line && notices != nullptr) {
            notices->fail("line %llu of %s is no row of a table of knowledge, aborting\n",
                          static_cast<unsigned long long>(*bad_line), path.c_str());
        }
        if (!text || bad_line) {
            return false;
        }
    }
    return true;
}

bool has_family(const model::knowledge& known, std::string_view family)
{
    return std::ranges::any_of(known.kinds(), [&](const model::finding_kind& kind) {
        return kind.id.starts_with(family) && kind.id.size() > family.size() &&
               kind.id[family.size()] == '.';
    });
}

} // namespace

bool is_knowledge_sound(const request::sdb_opts& options, files::file_tree& tree,
                        io::notices& notices)
{
    if (options.knowledge_paths.empty() && options.families.empty()) {
        return true;
    }
    model::knowledge known;
    if (!add_files(known, options, tree, &notices)) {
        return false;
    }
    for (const std::string& family : options.families) {
        if (!has_family(known, family)) {
            notices.fail("no family of findings: %s\n", family.c_str());
            return false;
        }
    }
    return true;
}

std::unique_ptr<model::explain_context> make_explain_context(const request::sdb_opts& options,
                                                             files::file_tree& tree,
                                                             const model::run_targets& targets,
                                                             std::uint64_t now)
{
    auto made = std::make_unique<model::explain_context>();
    add_files(made->known, options, tree, nullptr);
    made->targets = &targets;
    made->now = now;
    return made;
}

std::unique_ptr<model::known_records> load_known_records(const request::sdb_opts& options,
                                                         files::file_tree& tree,
                                                         io::notices& notices,
                                                         std::vector<model::unread_input>& unread)
{
    if (options.known_paths.empty()) {
        return nullptr;
    }
    auto made = std::make_unique<model::known_records>();
    for (const std::string& path : options.known_paths) {
        std::string reason;
        const auto source = tree.open(path, reason);
        sdb::sdb_database database;
        if (!source) {
            notices.fail("Prob analyzing file %s: %s\n", path.c_str(), reason.c_str());
            unread.push_back({path, reason});
        } else if (database.load(*source, options.bounds.inflated_bytes) !=
                   sdb::load_result::loaded) {
            reason = "is no database";
            notices.fail("Prob analyzing file %s: %s\n", path.c_str(), reason.c_str());
            unread.push_back({path, reason});
        } else {
            made->add(database);
        }
    }
    made->settle();
    return made;
}

model::file_probe make_file_probe(const request::sdb_opts& options, files::file_tree& tree,
                                  const std::string& root)
{
    const bool is_here = !options.volume_given && !options.vss_given && options.hive_given &&
                         model::is_own_hive(options.software_hive_path);
    if (root.empty() && !is_here) {
        return {};
    }
    return [root, is_here, &tree](const std::string& stored) -> std::optional<bool> {
        const model::stored_path path = model::read_stored_path(stored);
        if (path.kind != model::stored_kind::on_volume) {
            return std::nullopt;
        }
        std::string local = is_here ? path.drive : root;
        for (const std::string& name : path.names) {
            local = tree.walkable_path(platform::join_path(local, name));
        }
        return !tree.is_missing(local);
    };
}

model::file_probe probe_of_any(std::vector<model::file_probe> probes)
{
    return [probes = std::move(probes)](const std::string& stored) -> std::optional<bool> {
        bool is_known = true;
        for (const model::file_probe& probe : probes) {
            const auto answer = probe ? probe(stored) : std::nullopt;
            if (answer == true) {
                return true;
            }
            is_known = is_known && answer.has_value();
        }
        return is_known ? std::optional(false) : std::nullopt;
    };
}

} // namespace front
