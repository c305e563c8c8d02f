#pragma once

#include <cstdint>
#include <string>

#include "io/output_sink.h"
#include "platform/files.h"

namespace io {

// How a file that is written comes to its place.
enum class output_mode {
    replace,       // written beside its place, and put there when it is whole
    replace_fresh, // the same, but refused where the partial file is there already
    append,        // written at the end of the file itself, on a line of its own
    append_late,   // written beside its place, and then behind the end of the file
};

// What a line end becomes.
enum class line_ends { with_return, as_they_are };

// A file that a run writes. Until finish() nothing is lost of what was there: the text goes to
// "<name>.partial" beside it, or behind what stands in it; devices and pipes are written directly.
// Lines end with CR LF, unless they are left as they are. A link is followed to its end.
class output_file : public output_sink {
public:
    output_file() = default;
    ~output_file() override;

    // Where a path would be written, with nothing opened.
    struct place {
        platform::output_place target;
        std::string partial; // empty where there is none
    };
    static place find(const std::string& path, output_mode mode);

    // False, with the reason, if it cannot be written. To be called once.
    bool open(const place& where, output_mode mode, std::string& reason,
              line_ends ends = line_ends::with_return);
    bool is_open() const noexcept { return descriptor_ >= 0; }

    // Writes what is left and puts the file in its place. False if anything did not arrive: what
    // stood there before stands, and partial() stays for whoever wants it.
    bool finish();
    // Ends without putting anything in its place.
    void give_up();
    const std::string& partial() const noexcept { return where_.partial; }

private:
    bool write_block(std::string_view block) override;
    bool close();
    bool begin_append(std::string& reason);
    bool end_last_line();
    bool append_partial();
    void cut_back();

    place where_;
    output_mode mode_ = output_mode::replace;
    line_ends ends_ = line_ends::with_return;
    int descriptor_ = -1;
    std::int64_t old_length_ = -1; // of a file that is appended to, once it is held
    std::string translated_;
};

} // namespace io
