#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>

#include "gvcp_packet.hpp"

namespace camsim {

/// The camera's register space: byte addresses, big-endian registers. What lies between registers does not exist.
class register_map {
public:
    /// Fills `out` with the register's bytes from `offset` on; never asked for more than the register has.
    using reader = std::function<void(std::size_t offset, std::span<std::byte> out)>;
    using writer = std::function<gvcp::status(std::size_t offset, std::span<std::byte const> data)>;

    struct entry {
        std::uint32_t address;
        std::uint32_t length;  ///< bytes, a multiple of 4
        reader read;
        writer write;  ///< none: the register is write-protected
    };

    void add(entry one);
    gvcp::status read(std::uint32_t address, std::span<std::byte> out) const;
    gvcp::status write(std::uint32_t address, std::span<std::byte const> data) const;

private:
    entry const* find(std::uint32_t address) const;
    template <typename Visit>
    gvcp::status visit(std::uint32_t address, std::size_t length, Visit visit_part) const;

    std::map<std::uint32_t, entry> entries_;
};

// The usual kinds of register. A number is written whole or not at all.
using number_reader = std::function<std::uint64_t()>;
using number_writer = std::function<gvcp::status(std::uint64_t)>;
register_map::entry number_register(std::uint32_t address, std::uint32_t length, number_reader read,
                                    number_writer write = {});
register_map::entry constant_register(std::uint32_t address, std::uint32_t value);
using text_reader = std::function<std::string()>;
using text_writer = std::function<gvcp::status(std::string const&)>;
register_map::entry text_register(std::uint32_t address, std::uint32_t length, text_reader read,
                                  text_writer write = {});

}  // namespace camsim
