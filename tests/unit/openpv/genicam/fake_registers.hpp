// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// A camera's memory for tests of features.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "genicam/node_graph.hpp"
#include "gvcp/register_port.hpp"

/// Memory of a camera: initially 0. Counts accesses; fails for addresses of choice.
class fake_registers final : public openpv::register_port {
public:
    struct access {
        bool is_write = false;
        std::uint64_t address = 0;
        std::size_t bytes = 0;
        bool operator==(access const&) const = default;
    };

    std::map<std::uint64_t, std::byte> memory;
    std::map<std::uint64_t, openpv::register_result> failures;  ///< by address
    std::vector<access> accesses;
    int register_accesses = 0;  ///< of `read_register` and `write_register`
    std::function<void()> on_read;
    std::function<void(std::uint64_t)> on_write;  ///< with the address, after the memory has changed

    openpv::register_result read(std::uint64_t address, std::span<std::byte> into) override {
        accesses.push_back({false, address, into.size()});
        if (auto const failure = failures.find(address); failure != failures.end()) {
            return failure->second;
        }
        for (std::size_t i = 0; i < into.size(); ++i) {
            into[i] = memory[address + i];
        }
        if (on_read) {
            on_read();
        }
        return {};
    }

    openpv::register_result write(std::uint64_t address, std::span<std::byte const> from) override {
        accesses.push_back({true, address, from.size()});
        if (auto const failure = failures.find(address); failure != failures.end()) {
            return failure->second;
        }
        put(address, from);
        if (on_write) {
            on_write(address);
        }
        return {};
    }

    openpv::register_result read_register(std::uint64_t address, std::uint32_t& value) override {
        ++register_accesses;
        std::vector<std::byte> content(4);
        auto result = read(address, content);
        value = static_cast<std::uint32_t>(number(content));
        return result;
    }

    openpv::register_result write_register(std::uint64_t address, std::uint32_t value) override {
        ++register_accesses;
        return write(address, bytes(value, 4));
    }

    void put(std::uint64_t address, std::span<std::byte const> content) {
        for (std::size_t i = 0; i < content.size(); ++i) {
            memory[address + i] = content[i];
        }
    }
    /// Big-endian.
    void put(std::uint64_t address, std::uint64_t value, std::size_t size = 4) { put(address, bytes(value, size)); }
    std::uint64_t get(std::uint64_t address, std::size_t size = 4) {
        std::vector<std::byte> content(size);
        for (std::size_t i = 0; i < size; ++i) {
            content[i] = memory[address + i];
        }
        return number(content);
    }
    std::size_t reads() const {
        return static_cast<std::size_t>(std::ranges::count(accesses, false, &access::is_write));
    }

private:
    static std::vector<std::byte> bytes(std::uint64_t value, std::size_t size) {
        std::vector<std::byte> content(size);
        for (std::size_t i = 0; i < size; ++i) {
            content[size - 1 - i] = static_cast<std::byte>(value >> (8 * i));
        }
        return content;
    }
    static std::uint64_t number(std::span<std::byte const> content) {
        std::uint64_t value = 0;
        for (std::byte const each : content) {
            value = value << 8 | std::to_integer<std::uint64_t>(each);
        }
        return value;
    }
};

/// \param attributes of the root element
inline std::string whole_xml(std::string const& nodes,
                             std::string const& attributes = "SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\"") {
    return "<?xml version=\"1.0\"?><RegisterDescription ModelName=\"M\" VendorName=\"V\" " + attributes + ">" + nodes +
           "<Port Name=\"Device\"/></RegisterDescription>";
}

/// Elements of a register that can be read and written.
inline std::string register_parts(std::string const& address, int length = 4) {
    return "<Address>" + address + "</Address><Length>" + std::to_string(length) +
           "</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess>";
}

inline std::string element(std::string const& tag, std::string const& name, std::string const& parts) {
    return "<" + tag + " Name=\"" + name + "\">" + parts + "</" + tag + ">";
}
