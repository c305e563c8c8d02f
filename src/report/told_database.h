#pragma once

#include "form/facts.h"
#include "model/database_facts.h"
#include "report/job.h"

namespace report {

// Tells which database it is: its file, what it says of itself, and how far it goes. Digests and size are
// those of the database, as in the statistics: of a compressed one as it is inflated.
void tell_identity(form::fact_taker& to, const job& work, const model::database_identity& identity,
                   const model::digest_texts& digests);
model::digest_texts digests_of(const job& work);
std::string sha256_of(const job& work); // where the others were asked for

// Tells the size of a file or a database, and its digests.
void tell_digests(form::fact_taker& to, std::uint64_t size, const model::digest_texts& digests);

// What a program tells under the tag of a property, as a database would hold it.
form::value told_value(const model::pe_property& found);

// Tells a time that is known of it, from which source and of what, and of which of its names. To be
// called inside of a list.
void tell_time(form::fact_taker& to, std::string_view source, std::string_view event,
               const form::moment& when, const std::string* name = nullptr);
// Tells the times of a file, and all others that are known of it, where that is anything.
void tell_file_times(form::fact_taker& to, const io::file_times& times,
                     const io::file_history* kept);
// Tells the times of the file and the one that stands in the database.
void tell_times(form::fact_taker& to, const job& work, const model::database_identity& identity);

// The file of an input that could not be told about: its size, its digests (see model::file_digests) and its
// times.
class told_file : public form::told_facts {
public:
    explicit told_file(io::byte_source& source) : source_(source) {}

    std::string_view kind() const override { return "file"; }
    void tell(form::fact_taker& to) const override;

private:
    io::byte_source& source_;
};

// What stands in front of all that comes from a database.
class told_database : public form::told_facts {
public:
    explicit told_database(const job& work) : work_(work) {}

    std::string_view kind() const override { return "database"; }
    const sdb::sdb_database* database() const override { return work_.database; }
    void tell(form::fact_taker& to) const override;

private:
    const job& work_;
};

} // namespace report
