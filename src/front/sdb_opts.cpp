#include "front/sdb_opts.h"

namespace front {

void reset_per_database(sdb_opts& options)
{
    options.current_path.clear();
    options.file_write_time = 0;
    options.file_access_time = 0;
    options.file_creation_time = 0;
    options.found_offsets.clear();
    options.no_results = false;
    options.record_name.clear();
    options.listed_items = 0;
}

} // namespace front
