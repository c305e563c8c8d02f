// How the subjects of a database are called and recognised.
#pragma once

#include <cstdint>

#include "report/word_lines.h"
#include "request/cmd_params.h"
#include "sdb/database.h"
#include "uni/text_buffer.h"

namespace report {

// What a subject is called, and what it is where it is no program.
void write_title(uni::text_buffer& to, const sdb::sdb_database& database, std::uint32_t record,
                 bool are_definitions_unused);

// How subjects are recognised, one after the other.
class recognition_words {
public:
    // Both must outlive it.
    recognition_words(const sdb::sdb_database& database, const request::cmd_params& style)
        : database_(database), style_(style)
    {}

    // A line for each file, registry value and the like that is tested. Good until the next call.
    const word_lines& of(std::uint32_t record);

private:
    // The versions that a matching file admits, and its other facts.
    struct file_test {
        void clear();

        uni::text_buffer version;
        uni::text_buffer from;
        uni::text_buffer upto;
        uni::text_buffer facts;
        std::uint32_t name = 0; // tag
        bool is_negated = false;
    };
    void read_test(std::uint32_t list);
    void tell_own_file();
    void tell_other_file();
    void tell_choice(std::uint32_t list);
    void tell_child(std::uint32_t offset, std::uint16_t own);

    const sdb::sdb_database& database_;
    const request::cmd_params& style_;

    // The subject in work.
    std::uint32_t name_ = 0; // tag
    file_test test_;
    word_lines own_; // of its own file, then all
    word_lines others_;
};

} // namespace report
