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

query_outcome hive_query(const registry_cmd_parameters& parameters, const hive_image& image,
                         const row_taker& take)
{
    query_outcome outcome;
    key_path segments;
    if (!image.is_open() || !parse_key_path(parameters.key, segments)) {
        return outcome;
    }
    key_reader reader(image);
    collect_values(reader, segments, parameters.level, parameters.need,
                   [&](hive_value_record&& row) {
                       if (parameters.keeps_empty_rows || !row.data.empty()) {
                           outcome.any = true;
                           take(std::move(row));
                       }
                   });
    outcome.has_keys = has_beginning(reader, segments);
    outcome.is_damaged = reader.is_damaged();
    return outcome;
}

} // namespace hive
