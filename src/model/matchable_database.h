#pragma once

#include <string>
#include <utility>

#include "model/match.h"
#include "model/match_index.h"
#include "sdb/database.h"

namespace model {

// A database that many programs are held against. The database must outlive it.
struct matchable_database {
    matchable_database(std::string from, const sdb::sdb_database& of, tag_texts texts_of_tags,
                       const request::bounds& bounds)
        : path(std::move(from)), database(of), texts(std::move(texts_of_tags)),
          index(database, texts, bounds)
    {}

    std::string path;
    const sdb::sdb_database& database;
    tag_texts texts;
    match_index index;
};

} // namespace model
