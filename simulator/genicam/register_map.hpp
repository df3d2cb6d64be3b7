// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>

#include "protocol/gvcp_packet.hpp"

namespace camsim {

/// The camera's register space: big-endian registers at byte addresses. Addresses between registers do not exist.
///
/// Built once when the camera powers up; reads and writes then call the registers' functions. Not synchronised:
/// callers hold the mutex of the state that these functions use.
class register_map {
public:
    /// Fills `out` with the register's bytes from `offset` on. `out` never extends beyond the register.
    using reader = std::function<void(std::size_t offset, std::span<std::byte> out)>;
    using writer = std::function<gvcp::status(std::size_t offset, std::span<std::byte const> data)>;

    struct entry {
        std::uint32_t address;
        std::uint32_t length;  ///< bytes, a multiple of 4
        reader read;
        writer write;  ///< none: the register is read-only
    };

    /// \throws std::logic_error if the register overlaps another one
    void add(entry one);

    /// \return success, bad_alignment, or invalid_address if the range includes an address without a register
    gvcp::status read(std::uint32_t address, std::span<std::byte> out) const;

    /// Writes the registers of a range in ascending order, up to the first error. Writes none unless all exist and are
    /// writable.
    /// \return success, bad_alignment, invalid_address, write_protect, or the status of the register that failed
    gvcp::status write(std::uint32_t address, std::span<std::byte const> data) const;

private:
    entry const* find(std::uint32_t address) const;
    template <typename visitor>
    gvcp::status visit(std::uint32_t address, std::size_t length, visitor visit_part) const;

    std::map<std::uint32_t, entry> entries_;
};

using number_reader = std::function<std::uint64_t()>;
using number_writer = std::function<gvcp::status(std::uint64_t)>;

/// A register that holds a number. Partial writes fail with bad_alignment.
/// \param length 4 or 8 bytes
/// \param write empty: the register is read-only
register_map::entry number_register(std::uint32_t address, std::uint32_t length, number_reader read,
                                    number_writer write = {});

/// A read-only 32-bit register with a fixed value.
register_map::entry constant_register(std::uint32_t address, std::uint32_t value);

using text_reader = std::function<std::string()>;
using text_writer = std::function<gvcp::status(std::string const&)>;

/// A register that holds text of up to `length` bytes, padded with zeros. Text that fills it has no terminating zero.
/// \param write empty: the register is read-only
register_map::entry text_register(std::uint32_t address, std::uint32_t length, text_reader read,
                                  text_writer write = {});

}  // namespace camsim
