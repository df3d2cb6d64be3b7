// SPDX-License-Identifier: MIT
#include "genicam/register_map.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "base/byte_order.hpp"

namespace camsim {

void register_map::add(entry one) {
    auto const after = entries_.lower_bound(one.address);
    bool const hits_next = after != entries_.end() && after->first - one.address < one.length;
    if (hits_next || find(one.address) != nullptr) {
        throw std::logic_error("two registers share address " + std::to_string(one.address));
    }
    entries_.emplace(one.address, std::move(one));
}

register_map::entry const* register_map::find(std::uint32_t address) const {
    auto const after = entries_.upper_bound(address);
    if (after == entries_.begin()) {
        return nullptr;
    }
    entry const& candidate = std::prev(after)->second;
    return address - candidate.address < candidate.length ? &candidate : nullptr;
}

/// Calls `visit_part(register, offset in the register, offset in the range, length)` for each register of a range.
template <typename visitor>
gvcp::status register_map::visit(std::uint32_t address, std::size_t length, visitor visit_part) const {
    if (address % 4 != 0 || length % 4 != 0) {
        return gvcp::status::bad_alignment;
    }
    for (std::size_t done = 0; done < length;) {
        std::uint64_t const at = address + std::uint64_t{done};
        entry const* const one = at <= UINT32_MAX ? find(static_cast<std::uint32_t>(at)) : nullptr;
        if (one == nullptr) {
            return gvcp::status::invalid_address;
        }
        std::size_t const offset = static_cast<std::uint32_t>(at) - one->address;
        std::size_t const part = std::min<std::size_t>(one->length - offset, length - done);
        if (gvcp::status const result = visit_part(*one, offset, done, part); result != gvcp::status::success) {
            return result;
        }
        done += part;
    }
    return gvcp::status::success;
}

gvcp::status register_map::read(std::uint32_t address, std::span<std::byte> out) const {
    return visit(address, out.size(), [&](entry const& one, std::size_t offset, std::size_t at, std::size_t length) {
        one.read(offset, out.subspan(at, length));
        return gvcp::status::success;
    });
}

gvcp::status register_map::write(std::uint32_t address, std::span<std::byte const> data) const {
    gvcp::status const possible =
        visit(address, data.size(), [](entry const& one, std::size_t, std::size_t, std::size_t) {
            return one.write ? gvcp::status::success : gvcp::status::write_protect;
        });
    if (possible != gvcp::status::success) {
        return possible;
    }
    return visit(address, data.size(), [&](entry const& one, std::size_t offset, std::size_t at, std::size_t length) {
        return one.write(offset, data.subspan(at, length));
    });
}

register_map::entry number_register(std::uint32_t address, std::uint32_t length, number_reader read,
                                    number_writer write) {
    register_map::reader reader = [length, read = std::move(read)](std::size_t offset, std::span<std::byte> out) {
        std::array<std::byte, 8> bytes{};
        store_be64(bytes, 0, read());
        std::ranges::copy(std::span(bytes).last(length).subspan(offset, out.size()), out.begin());
    };
    register_map::writer writer;
    if (write) {
        writer = [length, write = std::move(write)](std::size_t offset, std::span<std::byte const> data) {
            if (offset != 0 || data.size() != length) {
                return gvcp::status::bad_alignment;
            }
            return write(length == 4 ? load_be32(data, 0) : load_be64(data, 0));
        };
    }
    return {address, length, std::move(reader), std::move(writer)};
}

register_map::entry constant_register(std::uint32_t address, std::uint32_t value) {
    return number_register(address, 4, [value] { return value; });
}

register_map::entry text_register(std::uint32_t address, std::uint32_t length, text_reader read, text_writer write) {
    auto const padded = [length, read = std::move(read)] {
        std::string text = read();
        text.resize(length, '\0');
        return text;
    };
    register_map::reader reader = [padded](std::size_t offset, std::span<std::byte> out) {
        std::string const text = padded();
        std::ranges::copy(std::as_bytes(std::span(text)).subspan(offset, out.size()), out.begin());
    };
    register_map::writer writer;
    if (write) {
        writer = [padded, write = std::move(write)](std::size_t offset, std::span<std::byte const> data) {
            std::string text = padded();
            std::ranges::transform(data, text.begin() + static_cast<std::ptrdiff_t>(offset),
                                   [](std::byte byte) { return static_cast<char>(byte); });
            text.resize(std::min(text.find('\0'), text.size()));
            return write(text);
        };
    }
    return {address, length, std::move(reader), std::move(writer)};
}

}  // namespace camsim
