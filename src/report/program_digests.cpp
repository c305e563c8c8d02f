#include "report/program_digests.h"

#include "model/database_facts.h"

namespace report {

model::digest_texts program_digests::of(io::byte_source& source, const std::string& path,
                                        io::notices& notices)
{
    const std::scoped_lock lock(mutex_);
    const std::uint64_t write_time = source.times().write;
    if (are_known_ && size_ == source.size() && write_time_ == write_time) {
        return digests_;
    }
    const bool was_another = source.has_changed(); // which was said
    digests_ = model::file_digests(source);
    size_ = source.size();
    write_time_ = write_time;
    are_known_ = true;
    if (source.has_failed()) {
        notices.fail("%s could not be read once more\n", path.c_str());
    } else if (source.has_changed() && !was_another) {
        notices.fail("%s changed while it was read\n", path.c_str());
    } else if (digests_.md5.empty() || digests_.sha1.empty()) {
        notices.fail("no digest of %s is to be had\n", path.c_str());
    }
    return digests_;
}

} // namespace report
