#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_tree.h"
#include "request/cmd_params.h"

namespace front {

// Makes one entry for each item of a -filter text, whose items are parted by "|", else by ",". An
// item "*" accepts everything and stands alone. Answers whether there is any entry.
bool parse_filter(std::vector<request::filter_entry>& entries, std::string_view text);

// Makes the entry of a -filter_sig text: blank-separated hexadecimal bytes, then "|" or "," and the
// offset at which a file must hold them. Nothing where that is not what stands there.
std::optional<request::filter_entry> parse_signature_filter(std::string_view text);

// Whether a path is to be worked on: its file was last written in the window of -cmd_start_time and
// -cmd_stop_time, if there is one, and an entry accepts it; without entries that is all. `path` is
// UTF-8; its case does not count.
//
//   entry              accepts
//   *                  everything
//   name.sdb           that file name
//   *.sdb  sys*  *ma*  file names that end with, begin with or hold the text
//   \folder            files whose directory holds the text, slashes being taken for backslashes,
//                      with a backslash or the directory's end behind it
//   a signature        files that hold these bytes at that offset
//
// Stream parts are not looked at. `open_failed` tells that a file could not be opened or read for
// its signature, so that a refusal may be none.
bool filter_accepts(const request::cmd_params& params, files::file_tree& tree, bool& open_failed,
                    const std::string& path, const std::vector<request::filter_entry>& entries);

} // namespace front
