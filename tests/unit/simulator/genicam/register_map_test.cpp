// SPDX-License-Identifier: MIT
#include "genicam/register_map.hpp"

#include <gmock/gmock.h>

#include "bytes.hpp"

using camsim::gvcp::status;

namespace {

struct RegisterMap : testing::Test {
    RegisterMap() {
        map.add(camsim::constant_register(0x10, 0x01020304));
        map.add(camsim::number_register(
            0x14, 4, [this] { return word; },
            [this](std::uint64_t value) {
                word = value;
                return value == 666 ? status::busy : status::success;
            }));
        map.add(camsim::number_register(
            0x18, 8, [this] { return wide; },
            [this](std::uint64_t value) {
                wide = value;
                return status::success;
            }));
        map.add(camsim::text_register(
            0x20, 8, [this] { return text; },
            [this](std::string const& value) {
                text = value;
                return status::success;
            }));
    }

    std::vector<std::byte> read(std::uint32_t address, std::size_t length) {
        std::vector<std::byte> data(length);
        EXPECT_EQ(map.read(address, data), status::success);
        return data;
    }
    status read_status(std::uint32_t address, std::size_t length) {
        std::vector<std::byte> data(length);
        return map.read(address, data);
    }

    std::uint64_t word = 5;
    std::uint64_t wide = 0x1122334455667788;
    std::string text = "left";
    camsim::register_map map;
};

}  // namespace

TEST_F(RegisterMap, ReadsNumbersBigEndianAndTextPadded) {
    EXPECT_EQ(read(0x10, 4), bytes({1, 2, 3, 4}));
    EXPECT_EQ(read(0x18, 8), bytes({0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}));
    EXPECT_EQ(read(0x20, 8), bytes({'l', 'e', 'f', 't', 0, 0, 0, 0}));
}

TEST_F(RegisterMap, ReadsAcrossRegistersAndPartsOfThem) {
    EXPECT_EQ(read(0x14, 8), bytes({0, 0, 0, 5, 0x11, 0x22, 0x33, 0x44}));
    EXPECT_EQ(read(0x1C, 8), bytes({0x55, 0x66, 0x77, 0x88, 'l', 'e', 'f', 't'}));
}

TEST_F(RegisterMap, ReturnsInvalidAddressBetweenRegisters) {
    EXPECT_EQ(read_status(0x0C, 4), status::invalid_address);
    EXPECT_EQ(read_status(0x24, 8), status::invalid_address);
    EXPECT_EQ(read_status(0xFFFFFFFC, 8), status::invalid_address);
    EXPECT_EQ(map.write(0x28, bytes({0, 0, 0, 0})), status::invalid_address);
}

TEST_F(RegisterMap, RequiresAlignment) {
    EXPECT_EQ(read_status(0x11, 4), status::bad_alignment);
    EXPECT_EQ(read_status(0x10, 3), status::bad_alignment);
    EXPECT_EQ(map.write(0x16, bytes({0, 0, 0, 0})), status::bad_alignment);
}

TEST_F(RegisterMap, RejectsPartialWritesOfNumbers) {
    EXPECT_EQ(map.write(0x18, bytes({0, 0, 0, 0, 0, 0, 1, 2})), status::success);
    EXPECT_EQ(wide, 0x102U);
    EXPECT_EQ(map.write(0x18, bytes({9, 9, 9, 9})), status::bad_alignment);
    EXPECT_EQ(map.write(0x1C, bytes({9, 9, 9, 9})), status::bad_alignment);
    EXPECT_EQ(wide, 0x102U);
}

TEST_F(RegisterMap, WritesTextInParts) {
    EXPECT_EQ(map.write(0x24, bytes({'e', 'y', 'e', 0})), status::success);
    EXPECT_EQ(text, "lefteye");
    EXPECT_EQ(map.write(0x20, bytes({'u', 'p', 0, 0})), status::success);
    EXPECT_EQ(text, "up");
}

TEST_F(RegisterMap, WritesNothingIfARegisterIsReadOnly) {
    EXPECT_EQ(map.write(0x10, bytes({9, 9, 9, 9, 9, 9, 9, 9})), status::write_protect);
    EXPECT_EQ(word, 5U);
}

TEST_F(RegisterMap, ReturnsTheStatusOfARegister) {
    EXPECT_EQ(map.write(0x14, bytes({0, 0, 0x02, 0x9A})), status::busy);
}

TEST_F(RegisterMap, RejectsOverlappingRegisters) {
    EXPECT_THROW(map.add(camsim::constant_register(0x1C, 0)), std::logic_error);
    EXPECT_THROW(map.add(camsim::number_register(0x0C, 8, [] { return 0; })), std::logic_error);
}
