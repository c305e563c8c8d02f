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
                std::vector<hive_value_record>& rows)
{
    key_reader reader(image);
    parsed_key_path path;
    std::string hive_name; // a label, which no report of this program shows
    if (!reader.open(hive_name) || !parse_key_path(parameters.key, path)) {
        return false;
    }
    std::vector<hive_value_record> found;
    collect_values(reader, path.segments, parameters.level, found);
    for (hive_value_record& row : found) {
        if (parameters.keeps_empty_rows || !row.data.empty()) {
            rows.push_back(std::move(row));
        }
    }
    return !rows.empty();
}

} // namespace hive
