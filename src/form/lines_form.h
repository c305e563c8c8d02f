#pragma once

#include "form/writer.h"

namespace form {

template <typename sayer_type>
class folding;

// Lines for readers: a line for each tag of a record, a labelled line for each fact.
class lines_form : public writer {
public:
    using writer::writer;

    bool heading(std::string_view text) override;
    bool row(std::string_view kind, std::span<const cell> cells) override;
    bool line(std::string_view text) override;
    bool title(std::string_view text) override;
    bool entry_row(std::string_view kind, std::span<const cell> cells,
                   std::span<const std::string> lines) override;
    bool subject(const entry& facts) override;
    bool separate() override;

private:
    friend class folding<lines_form>;
    bool may_say_more() const noexcept { return is_whole_; }
    bool has_room_for(const model::folded_record& folded) const noexcept;
    void say(std::span<const model::record_item> items, bool nests);
    void close_down_to(std::uint16_t) {}

    bool write_record(const model::record_groups& groups) override;
    void write_tag_line(uni::text_buffer& out, const model::record_item& item);
    void write_wrapped_tag_line(const model::record_item& item); // to fit a terminal
    void write_depth(uni::text_buffer& out, std::uint16_t depth);
    static void write_patch_lines(uni::text_buffer& out, const model::record_item& item,
                                  const sdb::sdb_database& database);
    void write_line_text(uni::text_buffer& out, const labelled_line& line,
                         const sdb::sdb_database* database) const;
    void write_remarked_text(uni::text_buffer& out, const labelled_line& line,
                             const sdb::sdb_database* database) const;

    bool say_line(std::string_view text, std::string_view shade_begin);
    void write_fitting(std::string_view text, bool is_title);

    std::unique_ptr<writer> make_fork(uni::text_buffer& out) const override;
    std::optional<std::string> patch_text(const sdb::patch_op& first) const override;

    // Whether people read these lines on a screen, so that they may be coloured and fit its width.
    virtual bool is_for_people() const noexcept { return true; }
    bool has_colors() const noexcept { return style_.has_colors && is_for_people(); }
    std::size_t columns() const noexcept { return is_for_people() ? style_.columns : 0; }

    bool is_whole_ = true; // the record in work
};

} // namespace form
