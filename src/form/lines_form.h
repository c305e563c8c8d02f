#pragma once

#include "form/writer.h"

namespace form {

template <typename sayer_type>
class folding;

// Lines for readers: a line for each tag of a record, a labelled line for each fact.
class lines_form : public writer {
public:
    using writer::writer;

    bool subject(const entry& facts) override;
    bool separate() override;

private:
    friend class folding<lines_form>;
    bool may_say_more() const noexcept { return is_whole_; }
    bool has_room_for(const model::folded_record& folded) const noexcept;
    void say(std::span<const model::record_item> items, bool nests);
    void close_down_to(std::uint16_t) {}

    bool write_record(const model::record_groups& groups) override;
    void write_tag_line(const model::record_item& item);
    void write_depth(std::uint16_t depth);
    void write_patch_lines(const model::record_item& item);
    void write_line_text(uni::text_buffer& out, const labelled_line& line,
                         const sdb::sdb_database* database) const;

    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override;
    std::optional<std::string> patch_text(const sdb::patch_op& first) const override;

    bool is_whole_ = true; // the record in work
};

} // namespace form
