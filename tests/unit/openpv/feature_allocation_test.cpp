// SPDX-License-Identifier: MIT
// Counts the allocations per feature read. A separate program, because it replaces the allocation functions.
#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "allocation_count.hpp"
#include "genicam/node_graph.hpp"

using support::allocations;

namespace {

/// Registers that all contain 1.
class ones final : public openpv::register_port {
public:
    openpv::register_result read(std::uint64_t /*address*/, std::span<std::byte> into) override {
        for (std::byte& each : into) {
            each = std::byte{1};
        }
        return {};
    }
    openpv::register_result write(std::uint64_t /*address*/, std::span<std::byte const> /*from*/) override {
        return {};
    }
    openpv::register_result read_register(std::uint64_t /*address*/, std::uint32_t& /*value*/) override { return {}; }
    openpv::register_result write_register(std::uint64_t /*address*/, std::uint32_t /*value*/) override { return {}; }
};

constexpr char const* xml =
    "<RegisterDescription>"
    "<IntReg Name=\"Register\"><Address>0</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>"
    "<Cachable>NoCache</Cachable></IntReg>"
    "<IntReg "
    "Name=\"Cached\"><Address>4</Address><pIndex>Register</pIndex><Length>4</Length><pPort>Device</pPort></IntReg>"
    "<Integer "
    "Name=\"AFeatureWithALongName\"><pIsAvailable>Cached</pIsAvailable><pValue>Formula</pValue><pMax>Cached</pMax>"
    "</Integer>"
    "<IntSwissKnife Name=\"Formula\"><pVariable Name=\"R\">Register</pVariable><pVariable Name=\"C\">Cached</pVariable>"
    "<Formula>R &gt; 5 ? R * 2 + C : SQRT(C)</Formula></IntSwissKnife>"
    "<Command Name=\"Latch\"><pValue>Register</pValue><CommandValue>1</CommandValue></Command>"
    "<Port Name=\"Device\"/></RegisterDescription>";

}  // namespace

TEST(FeatureEvaluation, AllocatesNothing) {
    ones registers;
    std::string error;
    auto const features = openpv::node_graph::load(xml, registers, error);
    ASSERT_TRUE(features) << error;
    ASSERT_NE(allocations, 0U) << "loading allocates";
    std::size_t before = 0;
    std::size_t successes = 0;
    constexpr std::size_t count = 1000;
    for (std::size_t i = 0; i <= count; ++i) {
        openpv::node* const feature = features->find_usable("AFeatureWithALongName");
        auto* const command = dynamic_cast<openpv::command_node*>(features->find_usable("Latch"));
        openpv::evaluation state;
        std::int64_t value = 0;
        double real = 0;
        openpv::node::integer_limits limits;
        bool const done = openpv::check_access(state, *feature, openpv::direction::read) &&
                          feature->read(state, value) && feature->read(state, real) &&
                          feature->get_limits(state, limits) && command->execute(state);
        successes += done ? 1 : 0;
        before = i == 0 ? allocations.load() : before;  // the first read allocates the cache
    }
    EXPECT_EQ(successes, count + 1);
    EXPECT_EQ(allocations - before, 0U);
}
