#include "front/volume_targets.h"

#include <utility>
#include <vector>

#include "front/discovery.h"
#include "model/software_hive.h"

namespace front {

void find_volumes(model::run_targets& targets, const request::sdb_opts& options,
                  const std::string& named, files::file_tree& tree, io::notices& notices)
{
    targets.volumes = {named};
    if (!options.volume_given && !options.vss_given) {
        return;
    }
    std::string reason;
    const files::place_kind kind = tree.kind_of(named, reason);
    if (kind == files::place_kind::disk) {
        targets.volumes = windows_partitions(tree, named, notices);
    } else if (kind == files::place_kind::file) {
        notices.fail("Prob reading volume %s: %s\n", named.c_str(), reason.c_str());
        targets.volumes.clear();
        targets.has_volume = false;
    }
}

void add_databases_of(model::run_targets& targets, const request::sdb_opts& options,
                      const std::string& volume, files::file_tree& tree, io::notices& notices)
{
    std::vector<std::string> found;
    add_default_targets(tree, found, volume, notices);
    for (std::string& path : found) {
        if (model::leads_out_of_volume(options, volume, tree, path)) {
            notices.fail("%s leads out of the volume, not opened\n", path.c_str());
            targets.unread.push_back({std::move(path), "leads out of the volume"});
        } else {
            targets.files.push_back(std::move(path));
        }
    }
    if (options.by_content && (options.explain || options.compares())) {
        add_targets_by_content(tree, targets.files, volume, notices);
    }
}

} // namespace front
