#include "hive/hive_query.h"

#include <utility>

namespace hive {

registry_cmd_parameters query_installed_databases()
{
    registry_cmd_parameters parameters;
    parameters.key = "HKLM\\Software\\Microsoft\\Windows NT\\CurrentVersion\\AppCompatFlags\\"
                     "InstalledSDB\\?*";
    return parameters;
}

bool hive_query(const registry_cmd_parameters& parameters, const hive_image& image,
                const row_taker& take)
{
    key_path segments;
    if (!image.is_open() || !parse_key_path(parameters.key, segments)) {
        return false;
    }
    key_reader reader(image);
    bool any = false;
    collect_values(reader, segments, parameters.level, parameters.need,
                   [&](hive_value_record&& row) {
                       if (parameters.keeps_empty_rows || !row.data.empty()) {
                           any = true;
                           take(std::move(row));
                       }
                   });
    return any;
}

} // namespace hive
