#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "uni/byte_view.h"

// Patch operations: the value of a 0x9002 tag is a run of instructions to check or rewrite bytes of
// a module. One operation, all numbers little-endian:
//
//   offset  width  field
//   0       u32    opcode: bit 2 match, bit 1 replace, bit 0 set address, tested in that order
//   4       u32    next_size: distance to the next operation
//   8       u32    data_size: bytes at offset 84, signed
//   12      u32    address
//   16      u32    reserved
//   20      64     module name, UTF-16LE, up to its first zero character
//   84             data
namespace sdb {

inline constexpr std::uint64_t patch_op_head = 84;

struct patch_op {
    std::uint32_t opcode = 0;
    std::uint32_t next_size = 0;
    std::int32_t data_size = 0;
    std::uint32_t address = 0;
    std::uint32_t reserved_word = 0;
    uni::byte_view module_name; // UTF-16LE
    uni::byte_view data;        // looks into the value that was decoded
};

// "match", "replace", "set addr", or "unk" for an opcode with none of the three bits.
std::string_view op_name(std::uint32_t opcode);

// Decodes the operation at `position` of a value. False when fewer than 52 bytes are left there, or
// when the data size is negative or more than what is left beyond 52 bytes. That an operation takes
// 84 bytes and may so be cut short leaves room for the shortest ones: bytes that the value does not have read as zero in the
// numbers and in the name, and are missing in `data`.
bool decode_patch_op(patch_op& op, uni::byte_view value, std::uint64_t position);

// Calls `act` for each operation of a value with its position, until it answers false. The walk
// ends at the first operation that does not decode, and behind one that does not lead forward.
template <typename action>
void for_each_patch_op(uni::byte_view value, action&& act)
{
    patch_op op;
    std::uint64_t position = 0;
    while (position < value.size() && decode_patch_op(op, value, position)) {
        if (!act(op, position) || op.next_size == 0) {
            return;
        }
        position += op.next_size;
    }
}

// Tells which operations of a value share bytes without end. One that begins inside bytes that an
// earlier one has taken, head and data, is to be said without its data where those before it exceed
// twice the value together.
class patch_shares {
public:
    explicit patch_shares(uni::byte_view value) : most_(2 * value.size()), size_(value.size()) {}

    // To be asked for each operation in order.
    bool take(const patch_op& op, std::uint64_t position)
    {
        const bool is_one_too_many = position < end_ && taken_ > most_;
        const std::uint64_t bytes =
            std::min(patch_op_head, size_ - position) + std::uint64_t{op.data.size()};
        taken_ += bytes;
        end_ = std::max(end_, position + bytes);
        return is_one_too_many;
    }

private:
    std::uint64_t most_;
    std::uint64_t size_;
    std::uint64_t taken_ = 0;
    std::uint64_t end_ = 0; // of what is taken
};

} // namespace sdb
