#include "report/read_program.h"

#include <utility>

namespace report {

program_state read_program(model::pe_list& properties, std::unique_ptr<io::byte_source>& source,
                           files::file_tree& tree, const std::string& path, io::notices& notices,
                           std::string& reason)
{
    source = tree.open(path, reason);
    if (!source) {
        return program_state::unreadable;
    }
    say_doubts(path, *source, notices);
    switch (model::read_pe_stats(properties, std::move(source), path, &source)) {
    case model::pe_outcome::no_program:
        reason = "is no program";
        return program_state::no_program;
    case model::pe_outcome::unreadable:
        reason = "reading failed";
        return program_state::unreadable;
    case model::pe_outcome::changed:
        notices.fail("%s changed while it was read\n", path.c_str());
        break;
    case model::pe_outcome::gathered:
        break;
    }
    return program_state::read;
}

void say_doubts(const std::string& path, const io::byte_source& source, io::notices& notices)
{
    const io::file_history* const kept = source.history();
    if (kept == nullptr) {
        return;
    }
    const auto clusters = static_cast<unsigned long long>(kept->clusters);
    if (kept->is_deleted && kept->free_clusters) {
        notices.say("%s was deleted: of its %llu clusters %llu are no other file's yet\n",
                    path.c_str(), clusters, static_cast<unsigned long long>(*kept->free_clusters));
    } else if (kept->is_deleted) {
        notices.say("%s was deleted: of its %llu clusters it is unknown which are no other file's "
                    "yet, the volume's bitmap cannot be read\n",
                    path.c_str(), clusters);
    }
    if (kept->is_damaged) {
        constexpr const char* words =
            "%s: its record is damaged, what is read may not be all of it\n";
        // The records of deleted files are often used again in part.
        kept->is_deleted ? notices.say(words, path.c_str()) : notices.fail(words, path.c_str());
    }
}

} // namespace report
