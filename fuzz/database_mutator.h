#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "sdb/tags.h"
#include "sdb/vocabulary.h"
#include "uni/byte_view.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

// Changes databases so that sizes and references stay sound: as a tree of tags.
namespace fuzz {

class database_tree {
public:
    explicit database_tree(uni::byte_view image)
    {
        const auto bytes = image.bytes();
        head_.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(
                                                        std::min<std::size_t>(12, bytes.size())));
        head_.resize(12);
        std::copy_n("sdbf", 4, head_.begin() + 8);
        root_.children = parse(image.from(12), 0);
    }

    void change(std::minstd_rand& random, const std::vector<std::uint16_t>& tags)
    {
        std::vector<place> places;
        list_places(root_, places);
        if (places.empty()) {
            root_.children.push_back({sdb::tag::database, {}, {}});
            return;
        }
        const place at = places[random() % places.size()];
        const place other = places[random() % places.size()];
        node copy = (*other.siblings)[other.index];
        auto& siblings = *at.siblings;
        node& chosen = siblings[at.index];
        switch (random() % 8) {
        case 0:
            siblings.erase(siblings.begin() + static_cast<std::ptrdiff_t>(at.index));
            break;
        case 1:
            siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(at.index),
                            1 + random() % 4, copy);
            break;
        case 2:
            chosen = std::move(copy);
            break;
        case 3:
            chosen = {sdb::tag::exe, {}, {chosen}};
            break;
        case 4: // another tag of its type
            for (int tries = 0; tries < 16; ++tries) {
                const std::uint16_t tag = tags[random() % tags.size()];
                if (sdb::tag_type(tag) == sdb::tag_type(chosen.tag)) {
                    chosen.tag = tag;
                    break;
                }
            }
            break;
        case 5: // a new one
            copy = {tags[random() % tags.size()], {}, {}};
            copy.payload.resize(sdb::tag_type(copy.tag) >= sdb::type::list
                                    ? random() % 24
                                    : sdb::bytes_to_next[copy.tag >> 12] - 2u);
            (is_list(chosen) ? chosen.children : siblings).push_back(std::move(copy));
            break;
        default:
            mutate_payload(chosen, random);
        }
    }

    // The bytes, with the references among them led to what stands there, but for one in eight.
    std::vector<std::uint8_t> image(std::minstd_rand& random) const
    {
        std::vector<std::uint8_t> out = head_;
        std::vector<std::size_t> string_references;
        std::vector<std::size_t> references;
        std::vector<std::uint32_t> lists;
        std::vector<std::uint32_t> strings;
        std::uint32_t table = 0;
        const auto put = [&](const auto& self, const node& one) -> void {
            const auto offset = static_cast<std::uint32_t>(out.size());
            put_number(out, one.tag, 2);
            if (sdb::tag_type(one.tag) == sdb::type::list) {
                lists.push_back(offset);
                table = one.tag == sdb::tag::stringtable ? offset : table;
                put_number(out, 0, 4);
                for (const node& child : one.children) {
                    self(self, child);
                }
                set_number(out, offset + 2, static_cast<std::uint32_t>(out.size() - offset - 6));
                return;
            }
            if (sdb::tag_type(one.tag) >= sdb::type::string) {
                if (one.tag == sdb::tag::stringtable_item) {
                    strings.push_back(offset);
                }
                put_number(out, static_cast<std::uint32_t>(one.payload.size()), 4);
            } else if (sdb::tag_type(one.tag) == sdb::type::stringref) {
                string_references.push_back(out.size());
            } else if (sdb::is_expanded_dword_tag(one.tag)) {
                references.push_back(out.size());
            }
            out.insert(out.end(), one.payload.begin(), one.payload.end());
            if (sdb::tag_type(one.tag) == sdb::type::binary_ && one.payload.size() % 2 != 0) {
                out.push_back(0);
            }
        };
        for (const node& one : root_.children) {
            put(put, one);
        }
        for (const std::size_t at : string_references) {
            if (!strings.empty() && random() % 8 != 0) {
                set_number(out, at, strings[random() % strings.size()] - table);
            }
        }
        for (const std::size_t at : references) {
            if (!lists.empty() && random() % 8 != 0) {
                set_number(out, at, lists[random() % lists.size()]);
            }
        }
        out.insert(out.end(), tail_.begin(), tail_.end());
        return out;
    }

private:
    struct node {
        std::uint16_t tag;
        std::vector<std::uint8_t> payload;
        std::vector<node> children;
    };
    struct place {
        std::vector<node>* siblings;
        std::size_t index;
    };

    static bool is_list(const node& one) { return sdb::tag_type(one.tag) == sdb::type::list; }

    std::vector<node> parse(uni::byte_view bytes, unsigned depth)
    {
        std::vector<node> nodes;
        std::uint64_t at = 0;
        while (bytes.contains(at, 2) && sdb::is_known_type(sdb::tag_type(bytes.u16(at)))) {
            node one{bytes.u16(at), {}, {}};
            const bool is_sized = sdb::tag_type(one.tag) >= sdb::type::list;
            const std::uint64_t begin = at + (is_sized ? 6 : 2);
            const std::uint64_t size =
                is_sized ? bytes.u32(at + 2) : sdb::bytes_to_next[one.tag >> 12] - 2u;
            const uni::byte_view value = bytes.slice(begin, size);
            if (is_list(one) && depth < 64) {
                one.children = parse(value, depth + 1);
            } else if (!is_list(one)) {
                one.payload.assign(value.bytes().begin(), value.bytes().end());
                one.payload.resize(is_sized ? value.size() : size);
            }
            at = begin + size + (sdb::tag_type(one.tag) == sdb::type::binary_ ? size % 2 : 0);
            nodes.push_back(std::move(one));
        }
        if (depth == 0) {
            const auto rest = bytes.from(at).bytes();
            tail_.assign(rest.begin(), rest.end());
        }
        return nodes;
    }

    static void list_places(node& of, std::vector<place>& places)
    {
        for (std::size_t i = 0; i < of.children.size(); ++i) {
            places.push_back({&of.children, i});
            list_places(of.children[i], places);
        }
    }

    static void mutate_payload(node& one, std::minstd_rand& random)
    {
        const std::size_t size = one.payload.size();
        one.payload.resize(size + 16);
        const std::size_t length = LLVMFuzzerMutate(one.payload.data(), size, one.payload.size());
        const bool is_sized = sdb::tag_type(one.tag) >= sdb::type::string;
        one.payload.resize(is_sized ? length : size);
        if (is_sized && random() % 4 == 0) {
            one.payload.resize(length / 2 * 2);
        }
    }

    static void put_number(std::vector<std::uint8_t>& out, std::uint32_t value, int bytes)
    {
        for (int i = 0; i < bytes; ++i) {
            out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        }
    }
    static void set_number(std::vector<std::uint8_t>& out, std::size_t at, std::uint32_t value)
    {
        for (std::size_t i = 0; i < 4 && at + i < out.size(); ++i) {
            out[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
        }
    }

    std::vector<std::uint8_t> head_;
    node root_{0, {}, {}};
    std::vector<std::uint8_t> tail_;
};

// The body of a target's own mutator: every other time the tree, else the bytes. The last `choices`
// bytes are the target's own.
inline std::size_t mutate_database(std::uint8_t* data, std::size_t size, std::size_t most,
                                   unsigned seed, std::size_t choices)
{
    std::minstd_rand random(seed);
    if (random() % 2 == 0) {
        return LLVMFuzzerMutate(data, size, most);
    }
    static const std::vector<std::uint16_t> tags = [] {
        std::vector<std::uint16_t> all;
        for (std::size_t slot = 0; slot + 1 < sdb::tag_slots; ++slot) {
            if (!sdb::known_tag_name(sdb::tag_of_slot(slot)).empty()) {
                all.push_back(sdb::tag_of_slot(slot));
            }
        }
        return all;
    }();
    const std::size_t kept = std::min(choices, size);
    const std::vector<std::uint8_t> chosen(data + size - kept, data + size);
    database_tree tree(uni::byte_view({data, size - kept}));
    for (unsigned changes = 1 + random() % 4; changes > 0; --changes) {
        tree.change(random, tags);
    }
    std::vector<std::uint8_t> image = tree.image(random);
    image.insert(image.end(), chosen.begin(), chosen.end());
    const std::size_t length = std::min(image.size(), most);
    std::copy_n(image.begin(), length, data);
    return length;
}

} // namespace fuzz
