#include "model/known_records.h"

#include <algorithm>
#include <string>

#include "model/record_facts.h"
#include "sdb/tags.h"
#include "uni/text.h"

namespace model {

void known_records::add(const sdb::sdb_database& database)
{
    const record_contents contents(database, key_, references_seen::by_content);
    for (const sdb::tag_table::list_row& list : database.children().lists()) {
        const std::uint32_t offset = database.offset_at(list.ordinal);
        digests_.push_back(contents.of_list(offset));
        if (is_definition(database, offset)) {
            definitions_.push_back({name_key(database, offset), contents.of_list(offset)});
        }
    }
}

content_digest known_records::name_key(const sdb::sdb_database& database,
                                       std::uint32_t record) const
{
    const std::string name = uni::lowered(text_in(database, record, sdb::tag::name));
    return keyed_digest(key_, database.tag_from(record), uni::byte_view(uni::bytes_of(name)));
}

bool known_records::redefines(const sdb::sdb_database& database, const record_contents& contents,
                              std::uint32_t record) const
{
    if (!is_definition(database, record) || child_of(database, record, sdb::tag::name) == 0) {
        return false;
    }
    const content_digest key = name_key(database, record);
    const content_digest content = contents.of_list(record);
    const auto first = std::ranges::lower_bound(definitions_, key, {}, &definition::name);
    return first != definitions_.end() && first->name == key &&
           !std::ranges::binary_search(definitions_, definition{key, content});
}

void known_records::settle()
{
    std::ranges::sort(digests_);
    digests_.erase(std::unique(digests_.begin(), digests_.end()), digests_.end());
    std::ranges::sort(definitions_);
}

bool known_records::holds(const content_digest& record) const
{
    return std::ranges::binary_search(digests_, record);
}

} // namespace model
