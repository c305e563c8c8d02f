#include "sdb/patch_op.h"

namespace sdb {

namespace {

constexpr std::uint64_t required_size = 52;
constexpr std::uint64_t name_position = 20;
constexpr std::uint64_t name_size = 64;

} // namespace

std::string_view op_name(std::uint32_t opcode)
{
    if ((opcode & 4) != 0) {
        return "match";
    }
    if ((opcode & 2) != 0) {
        return "replace";
    }
    return (opcode & 1) != 0 ? "set addr" : "unk";
}

bool decode_patch_op(patch_op& op, uni::byte_view value, std::uint64_t position)
{
    op = {};
    if (!value.contains(position, required_size)) {
        return false;
    }
    const uni::byte_view bytes = value.from(position);
    op.opcode = bytes.u32(0);
    op.next_size = bytes.u32(4);
    op.data_size = static_cast<std::int32_t>(bytes.u32(8));
    op.address = bytes.u32(12);
    op.reserved_word = bytes.u32(16);
    op.module_name = bytes.slice(name_position, name_size);
    if (op.data_size < 0 ||
        static_cast<std::uint64_t>(op.data_size) > bytes.size() - required_size) {
        return false;
    }
    op.data = bytes.slice(patch_op_head, static_cast<std::uint64_t>(op.data_size));
    return true;
}

} // namespace sdb
