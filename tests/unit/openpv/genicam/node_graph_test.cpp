// SPDX-License-Identifier: MIT
#include "genicam/node_graph.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_registers.hpp"

using openpv::check_access;
using openpv::direction;
using openpv::evaluation;
using openpv::node;
using openpv::node_graph;
using openpv::register_outcome;
using testing::ElementsAre;
using testing::HasSubstr;
using code = PvResult::Code;

namespace {

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

class NodeGraph : public testing::Test {
protected:
    void load(std::string const& nodes) {
        std::string error;
        graph = node_graph::load(whole_xml(nodes), camera, error);
        ASSERT_EQ(error, "");
    }

    node& find(char const* name) {
        node* const found = graph->find(name);
        if (found == nullptr) {
            throw std::runtime_error(std::string("no node ") + name);
        }
        return *found;
    }

    std::int64_t integer(char const* name) {
        evaluation state;
        std::int64_t value = -4711;
        EXPECT_TRUE(find(name).read(state, value)) << name << ": " << state.reason;
        return value;
    }
    double real(char const* name) {
        evaluation state;
        double value = -4711;
        EXPECT_TRUE(find(name).read(state, value)) << name << ": " << state.reason;
        return value;
    }
    std::string text(char const* name) {
        evaluation state;
        std::string value;
        EXPECT_TRUE(find(name).read(state, value)) << name << ": " << state.reason;
        return value;
    }
    std::string failure(char const* name) {
        evaluation state;
        std::int64_t value = 0;
        EXPECT_FALSE(find(name).read(state, value)) << name;
        last_code = state.code;
        return state.reason;
    }
    template <class number>
    void write(char const* name, number value) {
        evaluation state;
        EXPECT_TRUE(find(name).write(state, value)) << name << ": " << state.reason;
    }
    template <class number>
    std::string write_failure(char const* name, number value) {
        evaluation state;
        EXPECT_FALSE(find(name).write(state, value)) << name;
        last_code = state.code;
        return state.reason;
    }
    node::integer_limits limits(char const* name) {
        evaluation state;
        node::integer_limits got;
        EXPECT_TRUE(find(name).get_limits(state, got)) << state.reason;
        return got;
    }
    node::float_limits float_limits(char const* name) {
        evaluation state;
        node::float_limits got;
        EXPECT_TRUE(find(name).get_limits(state, got)) << state.reason;
        return got;
    }
    std::string refusal(char const* name, direction wanted) {
        evaluation state;
        return check_access(state, find(name), wanted) ? "" : state.reason;
    }

    fake_registers camera;
    std::unique_ptr<node_graph> graph;
    std::uint32_t last_code = code::OK;
};

std::string integer_register(std::string const& name, std::string const& address, std::string const& more = "") {
    return element("IntReg", name, register_parts(address) + more);
}
std::string constant(std::string const& name, std::string const& value) {
    return element("Integer", name, "<Value>" + value + "</Value>");
}
std::string formula(std::string const& name, std::string const& text, std::string const& variables = "") {
    return element("IntSwissKnife", name, variables + "<Formula>" + text + "</Formula>");
}
std::string variable(std::string const& name, std::string const& target) {
    return "<pVariable Name=\"" + name + "\">" + target + "</pVariable>";
}

/// Registers whose accesses end when as many threads as expected have begun one.
class meeting_registers final : public openpv::register_port {
public:
    explicit meeting_registers(int threads) : missing_(threads) {}

    openpv::register_result read(std::uint64_t /*address*/, std::span<std::byte> into) override {
        std::ranges::fill(into, std::byte{0});
        return meet();
    }
    openpv::register_result write(std::uint64_t /*address*/, std::span<std::byte const> /*from*/) override {
        return meet();
    }
    openpv::register_result read_register(std::uint64_t /*address*/, std::uint32_t& /*value*/) override {
        return meet();
    }
    openpv::register_result write_register(std::uint64_t /*address*/, std::uint32_t /*value*/) override {
        return meet();
    }

private:
    openpv::register_result meet() {
        std::unique_lock lock(mutex_);
        --missing_;
        changed_.notify_all();
        constexpr std::chrono::seconds patience{20};
        bool const met = changed_.wait_for(lock, patience, [this] { return missing_ <= 0; });
        return met ? openpv::register_result()
                   : openpv::register_result{register_outcome::timeout, 0, "the other threads wait for this one"};
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    int missing_;
};

/// A register of 4 bytes. Who reads it first goes on when another thread has read it too, or after a short time.
class shared_register final : public openpv::register_port {
public:
    openpv::register_result read(std::uint64_t /*address*/, std::span<std::byte> into) override {
        std::unique_lock lock(mutex_);
        std::ranges::copy(content_, into.begin());
        ++reads_;
        changed_.notify_all();
        constexpr std::chrono::milliseconds patience{100};  // passes if the other thread waits for this one
        changed_.wait_for(lock, patience, [this] { return reads_ >= 2; });
        return {};
    }
    openpv::register_result write(std::uint64_t /*address*/, std::span<std::byte const> from) override {
        std::lock_guard const lock(mutex_);
        std::ranges::copy(from, content_.begin());
        return {};
    }
    openpv::register_result read_register(std::uint64_t /*address*/, std::uint32_t& /*value*/) override {
        return {register_outcome::invalid, 0, "not used"};
    }
    openpv::register_result write_register(std::uint64_t /*address*/, std::uint32_t /*value*/) override {
        return {register_outcome::invalid, 0, "not used"};
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::array<std::byte, 4> content_{};
    int reads_ = 0;
};

void expect_limits(node::integer_limits const& got, std::int64_t minimum, std::int64_t maximum,
                   std::int64_t increment = 1) {
    EXPECT_EQ(got.minimum, minimum);
    EXPECT_EQ(got.maximum, maximum);
    EXPECT_EQ(got.increment, increment);
}

}  // namespace

TEST_F(NodeGraph, ReadsIntegersOfEachLengthSignAndByteOrder) {
    load(element("IntReg", "Big", register_parts("0x100", 2)) +
         element("IntReg", "Little",
                 "<Address>0x100</Address><Length>2</Length><pPort>Device</pPort><Endianess>LittleEndian</Endianess>") +
         element("IntReg", "Signed", register_parts("0x100", 2) + "<Sign>Signed</Sign>") +
         element("IntReg", "Wide", register_parts("0x100", 8)) +
         element("IntReg", "Odd", register_parts("0x100", 3) + "<Sign>Signed</Sign>"));
    camera.put(0x100, 0xFEDCBA9876543210, 8);
    EXPECT_EQ(integer("Big"), 0xFEDC);
    EXPECT_EQ(integer("Little"), 0xDCFE);
    EXPECT_EQ(integer("Signed"), -292);
    EXPECT_EQ(integer("Wide"), static_cast<std::int64_t>(0xFEDCBA9876543210));
    EXPECT_EQ(integer("Odd"), -74566);
    expect_limits(limits("Big"), 0, 0xFFFF);
    expect_limits(limits("Signed"), -0x8000, 0x7FFF);
    expect_limits(limits("Wide"), 0, highest);
}

TEST_F(NodeGraph, WritesIntegersInTheByteOrderOfTheRegister) {
    load(integer_register("Big", "0x100") +
         element("IntReg", "Little",
                 "<Address>0x104</Address><Length>4</Length><AccessMode>RW</AccessMode>"
                 "<pPort>Device</pPort><Endianess>LittleEndian</Endianess>"));
    write("Big", std::int64_t{0x01020304});
    write("Little", std::int64_t{0x01020304});
    EXPECT_EQ(camera.get(0x100), 0x01020304U);
    EXPECT_EQ(camera.get(0x104), 0x04030201U);
    write("Big", std::int64_t{-1});
    EXPECT_EQ(camera.get(0x100), 0xFFFFFFFFU);
    EXPECT_EQ(integer("Big"), 0xFFFFFFFF);
    EXPECT_EQ(camera.register_accesses, 0);
    EXPECT_THAT(write_failure("Big", std::int64_t{1} << 32), HasSubstr("does not fit"));
    EXPECT_EQ(last_code, code::INVALID_PARAMETER);
}

TEST_F(NodeGraph, MaskedIntegersAreCountedFromTheMostSignificantBitOfBigEndianRegisters) {
    std::string const bits = "<LSB>15</LSB><MSB>8</MSB>";
    load(element("MaskedIntReg", "Big", register_parts("0x100") + bits) +
         element("MaskedIntReg", "Little",
                 "<Address>0x100</Address><Length>4</Length><AccessMode>RW</AccessMode>"
                 "<pPort>Device</pPort><Endianess>LittleEndian</Endianess>" +
                     bits) +
         element("MaskedIntReg", "Signed", register_parts("0x100") + bits + "<Sign>Signed</Sign>") +
         element("MaskedIntReg", "Flag", register_parts("0x100") + "<Bit>0</Bit>") +
         element("MaskedIntReg", "Outside", register_parts("0x100") + "<Bit>32</Bit>"));
    camera.put(0x100, 0x80C07040);
    EXPECT_EQ(integer("Big"), 0xC0);
    EXPECT_EQ(integer("Little"), 0xC0);
    EXPECT_EQ(integer("Signed"), -64);
    EXPECT_EQ(integer("Flag"), 1);
    expect_limits(limits("Big"), 0, 255);
    expect_limits(limits("Signed"), -128, 127);
    EXPECT_THAT(failure("Outside"), HasSubstr("outside its register"));
}

TEST_F(NodeGraph, MaskedIntegersKeepBitsThatAnotherNodeHasWritten) {
    load(element("MaskedIntReg", "Low", register_parts("0x100") + "<LSB>31</LSB><MSB>16</MSB>") +
         element("MaskedIntReg", "High", register_parts("0x100") + "<LSB>15</LSB><MSB>0</MSB>"));
    EXPECT_EQ(integer("Low"), 0) << "cached";
    write("High", std::int64_t{0xABCD});
    write("Low", std::int64_t{0x1234});
    EXPECT_EQ(camera.get(0x100), 0xABCD1234U);
}

TEST_F(NodeGraph, StructureEntriesShareTheirRegister) {
    load("<StructReg Comment=\"S\">" + register_parts("0x100") +
         "<StructEntry Name=\"One\"><Bit>31</Bit></StructEntry>"
         "<StructEntry Name=\"Two\"><LSB>30</LSB><MSB>28</MSB></StructEntry>"
         "<StructEntry Name=\"Fixed\"><AccessMode>RO</AccessMode><Bit>0</Bit></StructEntry></StructReg>");
    camera.put(0x100, 0xB);
    EXPECT_EQ(integer("One"), 1);
    EXPECT_EQ(integer("Two"), 5);
    write("Two", std::int64_t{2});
    EXPECT_EQ(camera.get(0x100), 5U);
    EXPECT_THAT(refusal("Fixed", direction::write), HasSubstr("read-only"));
    EXPECT_EQ(refusal("One", direction::write), "");
}

TEST_F(NodeGraph, AddressIsTheSumOfItsParts) {
    load(constant("Base", "0x1000") + constant("Index", "3") + constant("Stride", "0x20") +
         element("IntReg", "Sum", register_parts("0x10") + "<Address>4</Address><pAddress>Base</pAddress>") +
         element("IntReg", "Indexed", register_parts("0x10") + "<pIndex Offset=\"0x100\">Index</pIndex>") +
         element("IntReg", "ByLength", register_parts("0x10") + "<pIndex>Index</pIndex>") +
         element("IntReg", "ByNode", register_parts("0x10") + "<pIndex pOffset=\"Stride\">Index</pIndex>") +
         element("IntReg", "ByFormula", register_parts("0x10") + formula("F", "B * 2", variable("B", "Base"))));
    for (char const* const name : {"Sum", "Indexed", "ByLength", "ByNode", "ByFormula"}) {
        integer(name);
    }
    std::vector<std::uint64_t> addresses;
    for (auto const& each : camera.accesses) {
        addresses.push_back(each.address);
    }
    EXPECT_THAT(addresses, ElementsAre(0x1014, 0x310, 0x1C, 0x70, 0x2010));
}

TEST_F(NodeGraph, AddressThatIsNotAnAddressFails) {
    load(constant("Huge", "0x7FFFFFFFFFFFFFFF") +
         element("IntReg", "Over", register_parts("1") + "<pAddress>Huge</pAddress>") +
         element("IntReg", "Negative", register_parts("-4")) +
         element("IntReg", "Product", register_parts("0") + "<pIndex Offset=\"16\">Huge</pIndex>") +
         element("IntReg", "Formula", register_parts("0") + formula("F", "(1&lt;&lt;63)/(0-1)")));
    for (char const* const name : {"Over", "Negative", "Product"}) {
        EXPECT_THAT(failure(name), HasSubstr("address of its register is not valid"));
    }
    EXPECT_THAT(failure("Formula"), HasSubstr("out of range"));
    EXPECT_TRUE(camera.accesses.empty());
}

TEST_F(NodeGraph, FloatsHaveFourOrEightBytes) {
    load(element("FloatReg", "Single", register_parts("0x100")) +
         element("FloatReg", "Double", register_parts("0x110", 8)) +
         element("FloatReg", "Odd", register_parts("0x120", 3)) +
         element("Float", "Linked", "<pValue>Single</pValue>"));
    write("Single", 1.5);
    write("Double", -2.25);
    EXPECT_EQ(camera.get(0x100), std::bit_cast<std::uint32_t>(1.5F));
    EXPECT_EQ(camera.get(0x110, 8), std::bit_cast<std::uint64_t>(-2.25));
    EXPECT_EQ(real("Single"), 1.5);
    EXPECT_EQ(real("Linked"), 1.5);
    EXPECT_EQ(integer("Double"), -2);
    EXPECT_EQ(float_limits("Linked").maximum, std::numeric_limits<float>::max());
    EXPECT_THAT(write_failure("Single", 1e300), HasSubstr("does not fit"));
    EXPECT_THAT(write_failure("Double", std::numeric_limits<double>::quiet_NaN()), HasSubstr("does not fit"));
    EXPECT_THAT(failure("Odd"), HasSubstr("neither 4 nor 8 bytes"));
    camera.put(0x200, std::bit_cast<std::uint64_t>(9223372036854775808.0), 8);
    load(element("FloatReg", "Huge", register_parts("0x200", 8)));
    EXPECT_THAT(failure("Huge"), HasSubstr("outside the range of integers"));
}

TEST_F(NodeGraph, FloatWithAnIntegerRegisterIsRounded) {
    load(integer_register("Reg", "0x100") + element("Float", "F", "<pValue>Reg</pValue>"));
    write("F", 28.999999);
    EXPECT_EQ(camera.get(0x100), 29U);
    EXPECT_EQ(real("F"), 29.0);
    EXPECT_EQ(float_limits("F").maximum, 4294967295.0);
}

TEST_F(NodeGraph, StringsEndAtTheirTerminatorOrTheirRegister) {
    load(element("StringReg", "S", register_parts("0x100", 8)) + element("String", "Linked", "<pValue>S</pValue>") +
         element("String", "Fixed", "<Value>some text</Value>") +
         element("StringReg", "Long", register_parts("0x100", 4097)));
    camera.put(0x100, 0x4142430045464748, 8);
    EXPECT_EQ(text("S"), "ABC");
    EXPECT_EQ(text("Fixed"), "some text");
    load(element("StringReg", "S", register_parts("0x100", 8)) + element("String", "Linked", "<pValue>S</pValue>"));
    camera.put(0x100, 0x4142434445464748, 8);
    EXPECT_EQ(text("Linked"), "ABCDEFGH");
    evaluation state;
    std::string value;
    load(element("StringReg", "Long", register_parts("0x100", 4097)));
    EXPECT_FALSE(find("Long").read(state, value));
    EXPECT_THAT(state.reason, HasSubstr("longer than 4096 bytes"));
}

TEST_F(NodeGraph, IntegerHasLimitsOfItsOwnOrOfItsRegister) {
    load(integer_register("Reg", "0x100") + constant("Top", "100") +
         element("Integer", "Bare", "<pValue>Reg</pValue>") +
         element("Integer", "Some", "<pValue>Reg</pValue><Min>8</Min><pMax>Top</pMax><Inc>4</Inc>") +
         element("Integer", "Free", "<Value>1</Value>"));
    expect_limits(limits("Bare"), 0, 4294967295);
    expect_limits(limits("Some"), 8, 100, 4);
    expect_limits(limits("Free"), lowest, highest);
    write("Top", std::int64_t{50});
    expect_limits(limits("Some"), 8, 50, 4);
}

TEST_F(NodeGraph, ValueMayBeSelectedByAnIndex) {
    load(constant("Index", "2") + integer_register("Reg", "0x100") +
         element("Integer", "Table",
                 "<pIndex>Index</pIndex><ValueIndexed Index=\"1\">10</ValueIndexed>"
                 "<pValueIndexed Index=\"2\">Reg</pValueIndexed><ValueDefault>99</ValueDefault>") +
         element("Float", "Reals", "<pIndex>Index</pIndex><ValueIndexed Index=\"1\">1.5</ValueIndexed>"));
    camera.put(0x100, 7);
    EXPECT_EQ(integer("Table"), 7);
    write("Table", std::int64_t{8});
    EXPECT_EQ(camera.get(0x100), 8U);
    EXPECT_THAT(failure("Reals"), HasSubstr("gives no value"));
    write("Index", std::int64_t{1});
    EXPECT_EQ(integer("Table"), 10);
    EXPECT_EQ(real("Reals"), 1.5);
    write("Index", std::int64_t{5});
    EXPECT_EQ(integer("Table"), 99);
}

TEST_F(NodeGraph, CopiesReceiveTheValueToo) {
    load(integer_register("A", "0x100") + integer_register("B", "0x104") +
         element("Integer", "Both", "<pValue>A</pValue><pValueCopy>B</pValueCopy>"));
    write("Both", std::int64_t{5});
    EXPECT_EQ(camera.get(0x100), 5U);
    EXPECT_EQ(camera.get(0x104), 5U);
}

TEST_F(NodeGraph, BooleanHasTheValuesOfItsXml) {
    load(integer_register("Reg", "0x100") +
         element("Boolean", "B", "<pValue>Reg</pValue><OnValue>7</OnValue><OffValue>3</OffValue>") +
         element("Boolean", "Local", "<Value>true</Value>"));
    EXPECT_EQ(integer("B"), 0);
    write("B", std::int64_t{1});
    EXPECT_EQ(camera.get(0x100), 7U);
    EXPECT_EQ(integer("B"), 1);
    write("B", std::int64_t{0});
    EXPECT_EQ(camera.get(0x100), 3U);
    EXPECT_EQ(integer("Local"), 1);
}

TEST_F(NodeGraph, CommandWritesItsValue) {
    load(integer_register("Reg", "0x100") + constant("Value", "9") +
         element("Command", "Fixed", "<pValue>Reg</pValue><CommandValue>0xFFFFFFFF</CommandValue>") +
         element("Command", "Linked", "<pValue>Reg</pValue><pCommandValue>Value</pCommandValue>"));
    evaluation state;
    EXPECT_TRUE(dynamic_cast<openpv::command_node&>(find("Fixed")).execute(state));
    EXPECT_EQ(camera.get(0x100), 0xFFFFFFFFU);
    EXPECT_TRUE(dynamic_cast<openpv::command_node&>(find("Linked")).execute(state));
    EXPECT_EQ(camera.get(0x100), 9U);
}

TEST_F(NodeGraph, FormulaUsesValuesLimitsAndEntriesOfOtherNodes) {
    load(integer_register("Reg", "0x100") +
         element("Integer", "I", "<pValue>Reg</pValue><Min>2</Min><Max>40</Max><Inc>4</Inc>") +
         element("Enumeration", "E", "<EnumEntry Name=\"Seven\"><Value>7</Value></EnumEntry><Value>7</Value>") +
         formula("Sum", "I + I.Min * 100 + I.Max * 1000 + I.Inc * 100000 + (E = E.Enum.Seven) * 1000000 + C + D",
                 variable("I", "I") + variable("I.Min", "I") + variable("I.Max", "I") + variable("I.Inc", "I") +
                     variable("E", "E") + variable("E.Enum.Seven", "E") +
                     "<Constant Name=\"C\">10000000</Constant><Expression Name=\"D\">C * 2</Expression>") +
         formula("NoEntry", "X.Enum.Eight", variable("X.Enum.Eight", "E")));
    camera.put(0x100, 6);
    EXPECT_EQ(integer("Sum"), 6 + 200 + 40'000 + 400'000 + 1'000'000 + 10'000'000 + 20'000'000);
    EXPECT_THAT(failure("NoEntry"), HasSubstr("Eight"));
}

TEST_F(NodeGraph, FloatFormulaDividesWithDoublesAndIntegerFormulaWithIntegers) {
    std::string const x = variable("X", "Seven");
    load(constant("Seven", "7") + formula("Whole", "X / 2", x) +
         element("SwissKnife", "Real", x + "<Formula>X / 2</Formula>") +
         element("Float", "Half", "<Value>0.5</Value>") + formula("OfDouble", "H * 5", variable("H", "Half")));
    EXPECT_EQ(integer("Whole"), 3);
    EXPECT_EQ(real("Real"), 3.5);
    EXPECT_EQ(integer("OfDouble"), 2) << "2.5, truncated";
    EXPECT_THAT(refusal("Real", direction::write), HasSubstr("read-only"));
}

TEST_F(NodeGraph, FormulaWithRegistersOfHostileContentFails) {
    std::string const ab = variable("A", "A") + variable("B", "B");
    load(element("IntReg", "A", register_parts("0x100", 8) + "<Sign>Signed</Sign><Cachable>NoCache</Cachable>") +
         element("IntReg", "B", register_parts("0x108", 8) + "<Sign>Signed</Sign><Cachable>NoCache</Cachable>") +
         formula("Quotient", "A / B", ab) + formula("Remainder", "A % B", ab) + formula("Shift", "A &lt;&lt; B", ab) +
         formula("Power", "A ** B", ab));
    camera.put(0x100, static_cast<std::uint64_t>(lowest), 8);
    EXPECT_THAT(failure("Quotient"), HasSubstr("the formula of Quotient failed: division by zero"));
    EXPECT_THAT(failure("Remainder"), HasSubstr("division by zero"));
    camera.put(0x108, static_cast<std::uint64_t>(-1), 8);
    EXPECT_THAT(failure("Quotient"), HasSubstr("out of range"));
    EXPECT_EQ(integer("Remainder"), 0);
    EXPECT_THAT(failure("Shift"), HasSubstr("a shift"));
    camera.put(0x108, static_cast<std::uint64_t>(highest), 8);
    EXPECT_THAT(failure("Power"), HasSubstr("out of range"));
    EXPECT_EQ(last_code, code::GENERIC_ERROR);
}

TEST_F(NodeGraph, FormulaThatCannotBeParsedFailsWhenItIsUsed) {
    load(formula("Bad", "1 +") + element("IntSwissKnife", "None", "") +
         element("IntReg", "Reg", register_parts("0") + formula("F", "X")));
    EXPECT_THAT(failure("Bad"), HasSubstr("an operand is missing"));
    EXPECT_THAT(failure("None"), HasSubstr("formula"));
    EXPECT_THAT(failure("Reg"), HasSubstr("\"X\", which is not defined"));
}

TEST_F(NodeGraph, ConverterReadsAndWritesThroughItsFormulas) {
    std::string const tens = "<FormulaTo>FROM * 10</FormulaTo><FormulaFrom>TO / 10</FormulaFrom><pValue>Reg</pValue>";
    load(integer_register("Reg", "0x100") + element("Converter", "C", tens) + element("IntConverter", "I", tens) +
         element("Converter", "Inverse",
                 "<FormulaTo>1000 / FROM</FormulaTo><FormulaFrom>1000 / TO</FormulaFrom><pValue>Limited</pValue>") +
         element("Integer", "Limited", "<pValue>Reg</pValue><Min>1</Min><Max>100</Max>") +
         element("Converter", "NoValue", "<FormulaTo>FROM</FormulaTo><FormulaFrom>TO</FormulaFrom>"));
    write("C", 0.29);
    EXPECT_EQ(camera.get(0x100), 3U) << "rounded to the nearest integer";
    EXPECT_EQ(real("C"), 0.3);
    EXPECT_EQ(integer("I"), 0);
    write("I", std::int64_t{5});
    EXPECT_EQ(camera.get(0x100), 50U);
    expect_limits(limits("I"), 0, 429496729);
    EXPECT_EQ(float_limits("Inverse").minimum, 10.0);
    EXPECT_EQ(float_limits("Inverse").maximum, 1000.0);
    write("Inverse", 20.0);
    EXPECT_EQ(camera.get(0x100), 50U);
    EXPECT_THAT(write_failure("Inverse", 0.0), HasSubstr("division by zero"));
    EXPECT_THAT(write_failure("C", 1e300), HasSubstr("outside the range of integers"));
    EXPECT_THAT(failure("NoValue"), HasSubstr("gives no value"));
}

TEST_F(NodeGraph, ConverterWhoseLimitCannotBeConvertedHasNone) {
    load(integer_register("Reg", "0x100") +
         element("Converter", "Inverse",
                 "<FormulaTo>1000 / FROM</FormulaTo><FormulaFrom>1000 / TO</FormulaFrom><pValue>Reg</pValue>"));
    EXPECT_EQ(float_limits("Inverse").minimum, std::numeric_limits<double>::lowest());
    EXPECT_EQ(float_limits("Inverse").maximum, std::numeric_limits<double>::max());
}

TEST_F(NodeGraph, AccessModeIsThatOfAllNodesThatProvideTheValue) {
    std::string const parts = "<Address>0x100</Address><Length>4</Length><pPort>Device</pPort>";
    load(element("IntReg", "WriteOnly", parts + "<AccessMode>WO</AccessMode>") + element("IntReg", "NoMode", parts) +
         integer_register("Both", "0x100") + element("Integer", "OfWriteOnly", "<pValue>WriteOnly</pValue>") +
         element("Integer", "Imposed", "<ImposedAccessMode>RO</ImposedAccessMode><pValue>Both</pValue>") +
         element("Integer", "OfImposed", "<pValue>Imposed</pValue>") +
         element("Integer", "Never", "<ImposedAccessMode>RO</ImposedAccessMode><pValue>WriteOnly</pValue>"));
    EXPECT_THAT(refusal("OfWriteOnly", direction::read), HasSubstr("write-only"));
    EXPECT_EQ(refusal("OfWriteOnly", direction::write), "");
    EXPECT_THAT(refusal("NoMode", direction::write), HasSubstr("read-only"));
    EXPECT_THAT(refusal("OfImposed", direction::write), HasSubstr("read-only"));
    EXPECT_EQ(refusal("OfImposed", direction::read), "");
    EXPECT_THAT(refusal("Never", direction::read), HasSubstr("neither read nor written"));
}

TEST_F(NodeGraph, ConditionsAreReadFromTheCamera) {
    std::string const fresh = "<Cachable>NoCache</Cachable>";
    load(integer_register("Condition", "0x100", fresh) +
         integer_register("Reg", "0x104", "<pIsAvailable>Condition</pIsAvailable>") +
         element("Integer", "Linked", "<pValue>Reg</pValue>") +
         element("Integer", "Locked", "<pIsLocked>Condition</pIsLocked><Value>1</Value>") +
         element("Integer", "Implemented", "<pIsImplemented>Opposite</pIsImplemented><Value>1</Value>") +
         formula("Opposite", "C = 0", variable("C", "Condition")));
    EXPECT_THAT(refusal("Linked", direction::read), HasSubstr("not available")) << "its register is not";
    EXPECT_EQ(refusal("Locked", direction::write), "");
    EXPECT_EQ(refusal("Implemented", direction::read), "");
    camera.put(0x100, 1);
    EXPECT_EQ(refusal("Linked", direction::read), "");
    EXPECT_THAT(refusal("Locked", direction::write), HasSubstr("locked"));
    EXPECT_EQ(refusal("Locked", direction::read), "");
    EXPECT_THAT(refusal("Implemented", direction::read), HasSubstr("does not implement"));
    camera.failures[0x100] = {register_outcome::timeout, 0, "no acknowledge"};
    EXPECT_EQ(refusal("Locked", direction::write), "no acknowledge");
}

TEST_F(NodeGraph, ReferenceToAMissingNodeFails) {
    load(element("Integer", "Broken", "<pValue>Nothing</pValue>") +
         element("Integer", "BrokenLimit", "<Value>1</Value><pMax>Nothing</pMax>"));
    EXPECT_THAT(failure("Broken"), HasSubstr("missing from the camera's GenICam XML"));
    EXPECT_THAT(write_failure("Broken", std::int64_t{1}), HasSubstr("missing"));
    EXPECT_EQ(integer("BrokenLimit"), 1);
    EXPECT_EQ(graph->find("Nothing"), nullptr);
}

TEST_F(NodeGraph, FailureOfTheCameraHasItsReasonAndCode) {
    load(integer_register("Reg", "0x100") + formula("F", "X + 1", variable("X", "Reg")));
    std::pair<openpv::register_result, std::uint32_t> const failures[] = {
        {{register_outcome::refused, 0x8003, "why"}, code::NOT_SUPPORTED},
        {{register_outcome::refused, 0x8004, "why"}, code::NOT_SUPPORTED},
        {{register_outcome::refused, 0x8002, "why"}, code::INVALID_PARAMETER},
        {{register_outcome::refused, 0x8FFF, "why"}, code::GENERIC_ERROR},
        {{register_outcome::timeout, 0, "why"}, code::TIMEOUT},
        {{register_outcome::closed, 0, "why"}, code::NOT_CONNECTED},
        {{register_outcome::unreachable, 0, "why"}, code::NOT_CONNECTED},
        {{register_outcome::invalid, 0, "why"}, code::GENERIC_ERROR},
    };
    for (auto const& [result, expected] : failures) {
        camera.failures[0x100] = result;
        EXPECT_EQ(failure("F"), "why");
        EXPECT_EQ(last_code, expected);
        EXPECT_EQ(write_failure("Reg", std::int64_t{1}), "why");
        EXPECT_EQ(last_code, expected);
    }
}

TEST_F(NodeGraph, OlderSchemasUseRegisterAccess) {
    std::string error;
    std::string const nodes = integer_register("Four", "0x100") + integer_register("Other", "0x104") +
                              element("IntReg", "Eight", register_parts("0x200", 8));
    graph = node_graph::load(whole_xml(nodes, "SchemaMajorVersion=\"1\" SchemaMinorVersion=\"0\""), camera, error);
    ASSERT_TRUE(graph) << error;
    write("Four", std::int64_t{0x01020304});
    EXPECT_EQ(camera.get(0x100), 0x01020304U);
    EXPECT_EQ(camera.register_accesses, 1);
    camera.put(0x104, 0x0A0B0C0D);
    EXPECT_EQ(integer("Other"), 0x0A0B0C0D);
    EXPECT_EQ(camera.register_accesses, 2);
    integer("Eight");
    EXPECT_EQ(camera.register_accesses, 2);
}

TEST_F(NodeGraph, RegisterOfAChunkIsNotReadFromTheCamera) {
    load(element("IntReg", "Chunk", "<Address>0</Address><Length>4</Length><pPort>ChunkPort</pPort>") +
         "<Port Name=\"ChunkPort\"><ChunkID>1001</ChunkID></Port>" +
         element("IntReg", "Nowhere", "<Address>0</Address><Length>4</Length><pPort>None</pPort>"));
    EXPECT_THAT(failure("Chunk"), HasSubstr("part of a chunk"));
    EXPECT_THAT(failure("Nowhere"), HasSubstr("port"));
    EXPECT_TRUE(camera.accesses.empty());
}

TEST_F(NodeGraph, LengthMayBeAValueOfTheCamera) {
    load(integer_register("Length", "0x100", "<Cachable>NoCache</Cachable>") +
         element("StringReg", "S", "<Address>0x200</Address><pLength>Length</pLength><pPort>Device</pPort>") +
         element("IntReg", "Constant", register_parts("0x200", 0)) +
         element("Integer", "Dependent", "<Value>1</Value><pMax>Constant</pMax>"));
    camera.put(0x200, 0x41424344);
    camera.put(0x100, 3);
    EXPECT_EQ(text("S"), "ABC");
    for (std::uint64_t const length : {std::uint64_t{0}, std::uint64_t{0xFFFFFFFF}}) {
        camera.put(0x100, length);
        evaluation state;
        std::string value;
        EXPECT_FALSE(find("S").read(state, value));
        EXPECT_EQ(state.code, code::NOT_FOUND);
    }
    EXPECT_NE(graph->find("Dependent"), nullptr);
    EXPECT_EQ(graph->find_usable("Dependent"), nullptr);
    EXPECT_EQ(graph->find_usable("Constant"), nullptr);
    EXPECT_NE(graph->find_usable("S"), nullptr);
}

TEST_F(NodeGraph, DescribesBootstrapRegistersThatTheXmlLacks) {
    load(constant("GevSCPSPacketSize", "7"));
    EXPECT_EQ(integer("GevSCPSPacketSize"), 7) << "the XML comes first";
    load("");
    camera.put(0xD04, 0x400005DC);
    EXPECT_EQ(integer("GevSCPSPacketSize"), 1500);
    expect_limits(limits("GevSCPSPacketSize"), 220, 16404, 4);
    write("GevSCPSPacketSize", std::int64_t{576});
    EXPECT_EQ(camera.get(0xD04), 0x40000240U);
    EXPECT_EQ(refusal("GevSCPSPacketSize", direction::write), "");
    write("TLParamsLocked", std::int64_t{1});
    EXPECT_THAT(refusal("GevSCPSPacketSize", direction::write), HasSubstr("locked"));
    std::pair<char const*, std::uint64_t> const texts[] = {{"DeviceVendorName", 0x48},
                                                           {"DeviceModelName", 0x68},
                                                           {"DeviceVersion", 0x88},
                                                           {"DeviceManufacturerInfo", 0xA8},
                                                           {"DeviceID", 0xD8}};
    for (auto const& [name, address] : texts) {
        camera.put(address, 0x41420000);
        EXPECT_EQ(text(name), "AB") << name;
    }
}

// Caching.

TEST_F(NodeGraph, CachesAsTheXmlAllows) {
    load(integer_register("Through", "0x100", "<Cachable>WriteThrough</Cachable>") +
         integer_register("Around", "0x104", "<Cachable>WriteAround</Cachable>") +
         integer_register("Never", "0x108", "<Cachable>NoCache</Cachable>") + integer_register("Default", "0x10C"));
    for (int i = 0; i < 3; ++i) {
        integer("Through");
        integer("Around");
        integer("Default");
    }
    EXPECT_EQ(camera.reads(), 3U);
    integer("Never");
    integer("Never");
    EXPECT_EQ(camera.reads(), 5U);
    for (char const* const name : {"Through", "Around", "Default"}) {
        write(name, std::int64_t{5});
    }
    EXPECT_EQ(integer("Through"), 5);
    EXPECT_EQ(integer("Default"), 5);
    EXPECT_EQ(camera.reads(), 5U);
    EXPECT_EQ(integer("Around"), 5);
    EXPECT_EQ(camera.reads(), 6U);
    evaluation uncached;
    uncached.uncached = true;
    std::int64_t value = 0;
    EXPECT_TRUE(find("Through").read(uncached, value));
    EXPECT_EQ(camera.reads(), 7U);
}

TEST_F(NodeGraph, CachesPerAddress) {
    load(constant("Selector", "0") + integer_register("Reg", "0x100", "<pIndex Offset=\"4\">Selector</pIndex>"));
    camera.put(0x104, 7);
    EXPECT_EQ(integer("Reg"), 0);
    write("Selector", std::int64_t{1});
    EXPECT_EQ(integer("Reg"), 7);
}

TEST_F(NodeGraph, DropsCachedContentWhenAnInvalidatorOrASelectorIsWritten) {
    load(integer_register("Source", "0x100") + element("Integer", "Feature", "<pValue>Source</pValue>") +
         integer_register("OfFeature", "0x200", "<pInvalidator>Feature</pInvalidator>") +
         integer_register("OfSource", "0x200", "<pInvalidator>Source</pInvalidator>") +
         integer_register("Free", "0x200") + integer_register("Selected", "0x200") +
         element("Integer", "SelectedFeature", "<pValue>Selected</pValue>") +
         element("Integer", "Selector", "<Value>0</Value><pSelected>SelectedFeature</pSelected>") +
         element("Command", "Do", "<pValue>Source</pValue><CommandValue>1</CommandValue>"));
    auto const read_all = [this] {
        return std::vector<std::int64_t>{integer("OfFeature"), integer("OfSource"), integer("Free"),
                                         integer("SelectedFeature")};
    };
    EXPECT_THAT(read_all(), ElementsAre(0, 0, 0, 0));
    camera.put(0x200, 1);
    write("Feature", std::int64_t{1});
    EXPECT_THAT(read_all(), ElementsAre(1, 1, 0, 0));
    camera.put(0x200, 2);
    evaluation state;
    EXPECT_TRUE(dynamic_cast<openpv::command_node&>(find("Do")).execute(state));
    EXPECT_THAT(read_all(), ElementsAre(2, 2, 0, 0)) << "the register provides the feature's value";
    camera.put(0x200, 3);
    write("Selector", std::int64_t{1});
    EXPECT_THAT(read_all(), ElementsAre(2, 2, 0, 3));
}

TEST_F(NodeGraph, DropsCachedContentOfAFailedWrite) {
    load(integer_register("Reg", "0x100"));
    EXPECT_EQ(integer("Reg"), 0);
    camera.failures[0x100] = {register_outcome::timeout, 0, "no acknowledge"};
    write_failure("Reg", std::int64_t{5});
    camera.failures.clear();
    camera.put(0x100, 5);
    EXPECT_EQ(integer("Reg"), 5);
}

TEST_F(NodeGraph, ReadsPolledContentAgainAfterItsTime) {
    load(integer_register("Short", "0x100", "<PollingTime>1</PollingTime>") +
         integer_register("Long", "0x100", "<PollingTime>3600000</PollingTime>"));
    EXPECT_EQ(integer("Short"), 0);
    EXPECT_EQ(integer("Long"), 0);
    camera.put(0x100, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));  // the time that is tested
    EXPECT_EQ(integer("Short"), 1);
    EXPECT_EQ(integer("Long"), 0);
}

TEST_F(NodeGraph, DoesNotCacheWhatWasReadWhileItWasInvalidated) {
    load(constant("Source", "0") + integer_register("Reg", "0x100", "<pInvalidator>Source</pInvalidator>"));
    camera.on_read = [this] {
        camera.on_read = nullptr;
        camera.put(0x100, 5);
        write("Source", std::int64_t{1});
    };
    EXPECT_EQ(integer("Reg"), 0) << "read before it changed";
    EXPECT_EQ(integer("Reg"), 5);
}

TEST_F(NodeGraph, ReadsOneRegisterWithOneAccess) {
    load(
        element("Integer", "A", "<pValue>B</pValue><Min>0</Min><Max>100</Max>") +
        element("IntConverter", "B", "<FormulaTo>FROM</FormulaTo><FormulaFrom>TO + 1</FormulaFrom><pValue>C</pValue>") +
        element("MaskedIntReg", "C",
                register_parts("0x100") + "<LSB>15</LSB><MSB>8</MSB><Cachable>NoCache</Cachable>"));
    EXPECT_EQ(refusal("A", direction::read), "");
    EXPECT_EQ(integer("A"), 1);
    EXPECT_THAT(camera.accesses, ElementsAre(fake_registers::access{false, 0x100, 4}));
    EXPECT_EQ(camera.register_accesses, 0);
}

TEST(NodeGraphThreads, DoNotWaitForEachOthersRoundTrips) {
    constexpr int threads = 4;
    meeting_registers camera(threads);
    std::string error;
    std::string const nodes = integer_register("Cached", "0x100") +
                              integer_register("Fresh", "0x104", "<Cachable>NoCache</Cachable>") +
                              formula("Formula", "X + 1", variable("X", "Fresh"));
    auto const graph = node_graph::load(whole_xml(nodes), camera, error);
    ASSERT_TRUE(graph) << error;
    auto const read = [&graph](char const* name) {
        evaluation state;
        std::int64_t value = 0;
        EXPECT_TRUE(graph->find(name)->read(state, value)) << name << ": " << state.reason;
    };
    auto const write = [&graph] {
        evaluation state;
        EXPECT_TRUE(graph->find("Cached")->write(state, std::int64_t{5})) << state.reason;
    };
    std::jthread const one(read, "Cached");
    std::jthread const two(read, "Formula");
    std::jthread const three(read, "Cached");
    write();
}

TEST_F(NodeGraph, WritesATextAndFillsItsRegisterWithZeros) {
    load(element("StringReg", "Name", register_parts("0x100", 8)));
    camera.put(0x104, 0x41414141);
    write("Name", std::string("left"));
    EXPECT_EQ(text("Name"), "left");
    EXPECT_EQ(camera.get(0x104), 0U);
}

TEST_F(NodeGraph, RefusesATextThatIsLongerThanItsRegister) {
    load(element("StringReg", "Name", register_parts("0x100", 8)));
    EXPECT_EQ(write_failure("Name", std::string("123456789")), "the text is longer than 8 bytes");
    EXPECT_EQ(last_code, code::INVALID_PARAMETER);
    EXPECT_EQ(text("Name"), "");
}

TEST_F(NodeGraph, WritesATextThroughANodeThatLinksToIt) {
    load(element("StringReg", "NameReg", register_parts("0x100", 8)) +
         element("String", "Name", "<pValue>NameReg</pValue>"));
    write("Name", std::string("right"));
    EXPECT_EQ(text("NameReg"), "right");
}

TEST_F(NodeGraph, RefusesATextForANumber) {
    load(element("IntReg", "Width", register_parts("0x100")));
    EXPECT_EQ(write_failure("Width", std::string("1")), "Width is not a text");
}

// Boundaries and defaults of values.

TEST_F(NodeGraph, IntegerFitsIfItIsSignedOrUnsignedInItsRegister) {
    load(integer_register("Reg", "0x100") +
         element("MaskedIntReg", "Eight", register_parts("0x104") + "<LSB>31</LSB><MSB>24</MSB>") +
         element("MaskedIntReg", "Most", register_parts("0x108", 8) + "<LSB>63</LSB><MSB>1</MSB>"));
    write("Reg", std::int64_t{0xFFFFFFFF});
    EXPECT_EQ(camera.get(0x100), 0xFFFFFFFFU);
    write("Reg", -(std::int64_t{1} << 31));
    EXPECT_EQ(camera.get(0x100), 0x80000000U);
    EXPECT_THAT(write_failure("Reg", -(std::int64_t{1} << 31) - 1), HasSubstr("does not fit"));
    write("Eight", std::int64_t{255});
    write("Eight", std::int64_t{-128});
    EXPECT_EQ(camera.get(0x104), 0x80U);
    EXPECT_THAT(write_failure("Eight", std::int64_t{-129}), HasSubstr("does not fit"));
    EXPECT_THAT(write_failure("Eight", std::int64_t{256}), HasSubstr("does not fit"));
    camera.put(0x108, 0xFFFFFFFFFFFFFFFF, 8);
    EXPECT_EQ(integer("Most"), highest);
    write("Most", std::int64_t{0});
    EXPECT_EQ(camera.get(0x108, 8), std::uint64_t{1} << 63);
}

TEST_F(NodeGraph, NegativeValueChangesNoBitsBesidesItsOwn) {
    load(element("MaskedIntReg", "Middle", register_parts("0x100") + "<LSB>19</LSB><MSB>12</MSB>"));
    write("Middle", std::int64_t{-1});
    EXPECT_EQ(camera.get(0x100), 0x000FF000U);
}

TEST_F(NodeGraph, MaskedIntegerIsItsRegisterOrFails) {
    load(element("MaskedIntReg", "All", register_parts("0x100")) +
         element("MaskedIntReg", "Below", register_parts("0x100") + "<Bit>-1</Bit>"));
    camera.put(0x100, 0x01020304);
    EXPECT_EQ(integer("All"), 0x01020304);
    EXPECT_THAT(failure("Below"), HasSubstr("outside its register"));
}

TEST_F(NodeGraph, BitsOfAWriteOnlyRegisterAreWrittenWithoutReadingIt) {
    load(element("MaskedIntReg", "Bits",
                 "<Address>0x100</Address><Length>4</Length><AccessMode>WO</AccessMode><pPort>Device</pPort>"
                 "<Endianess>BigEndian</Endianess><LSB>31</LSB><MSB>24</MSB>"));
    camera.put(0x100, 0xFFFFFFFF);
    write("Bits", std::int64_t{5});
    EXPECT_EQ(camera.get(0x100), 5U);
    EXPECT_EQ(camera.reads(), 0U);
}

TEST(NodeGraphThreads, DoNotUndoEachOthersBitsOfARegister) {
    shared_register camera;
    std::string error;
    auto const graph =
        node_graph::load(whole_xml("<StructReg Comment=\"S\">" + register_parts("0") +
                                   "<StructEntry Name=\"Low\"><LSB>31</LSB><MSB>16</MSB></StructEntry>"
                                   "<StructEntry Name=\"High\"><LSB>15</LSB><MSB>0</MSB></StructEntry></StructReg>"),
                         camera, error);
    ASSERT_TRUE(graph) << error;
    auto const write = [&graph](char const* name, std::int64_t value) {
        evaluation state;
        EXPECT_TRUE(graph->find(name)->write(state, value)) << state.reason;
    };
    {
        std::jthread const other(write, "Low", std::int64_t{0x1234});
        write("High", 0xABCD);
    }
    std::array<std::byte, 4> content{};
    camera.read(0, content);
    EXPECT_THAT(content, ElementsAre(std::byte{0xAB}, std::byte{0xCD}, std::byte{0x12}, std::byte{0x34}));
}

TEST_F(NodeGraph, StructureAndRegisterHaveTheAccessModeOfTheirElement) {
    std::string const read_only =
        "<Address>0x100</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>";
    load(element("Register", "Raw", read_only) + "<StructReg Comment=\"S\">" + read_only +
         "<StructEntry Name=\"Entry\"><Bit>0</Bit></StructEntry></StructReg>");
    EXPECT_THAT(refusal("Raw", direction::write), HasSubstr("read-only"));
    EXPECT_EQ(refusal("Raw", direction::read), "");
    EXPECT_THAT(refusal("Entry", direction::write), HasSubstr("read-only"));
}

TEST_F(NodeGraph, FloatIsNotBelowTheRangeOfItsRegister) {
    load(element("FloatReg", "Single", register_parts("0x100")));
    EXPECT_EQ(float_limits("Single").minimum, std::numeric_limits<float>::lowest());
    EXPECT_THAT(write_failure("Single", -1e300), HasSubstr("does not fit"));
}

TEST_F(NodeGraph, TextMayFillItsRegister) {
    load(element("StringReg", "Name", register_parts("0x100", 8)) +
         element("StringReg", "Longest", register_parts("0x1000", 4096)));
    write("Name", std::string("12345678"));
    EXPECT_EQ(text("Name"), "12345678");
    std::string const longest(4096, 'x');
    write("Longest", longest);
    EXPECT_EQ(text("Longest"), longest);
}

TEST_F(NodeGraph, TextHasTheAccessModeOfItsRegister) {
    load(element("StringReg", "Reg",
                 "<Address>0</Address><Length>8</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>") +
         element("String", "Linked", "<pValue>Reg</pValue>") + element("String", "Fixed", "<Value>text</Value>"));
    EXPECT_THAT(refusal("Linked", direction::write), HasSubstr("read-only"));
    EXPECT_EQ(write_failure("Fixed", std::string("other")), "Fixed is not writable");
    EXPECT_EQ(text("Fixed"), "text");
}

TEST_F(NodeGraph, IndexThatCannotBeReadSelectsNoValue) {
    load(integer_register("Index", "0x100") +
         element("Integer", "Table",
                 "<pIndex>Index</pIndex><ValueIndexed>10</ValueIndexed><ValueDefault>99</ValueDefault>"));
    EXPECT_EQ(integer("Table"), 10) << "the index is 0 if its attribute is missing";
    camera.failures[0x100] = {register_outcome::timeout, 0, "no acknowledge"};
    load(integer_register("Index", "0x100") +
         element("Integer", "Table", "<pIndex>Index</pIndex><ValueDefault>99</ValueDefault>"));
    EXPECT_EQ(failure("Table"), "no acknowledge");
    EXPECT_EQ(last_code, code::TIMEOUT);
}

TEST_F(NodeGraph, LimitsComeFromTheSourceOnlyIfTheyAreMissing) {
    camera.failures[0x100] = {register_outcome::timeout, 0, "no acknowledge"};
    load(integer_register("Away", "0x100") +
         element("Integer", "Source", "<Value>8</Value><Min>4</Min><Max>40</Max><Inc>4</Inc>") +
         element("Integer", "Stepped", "<pValue>Source</pValue><Min>8</Min><Max>16</Max>") +
         element("Integer", "Unlimited", "<Value>1</Value><pMin>Away</pMin>") +
         element("Integer", "Complete", "<pValue>Unlimited</pValue><Min>1</Min><Max>9</Max><Inc>2</Inc>") +
         element("Float", "Lower", "<pValue>Source</pValue><Min>6.5</Min>") +
         element("Float", "Upper", "<pValue>Source</pValue><Max>7.5</Max>") +
         element("Float", "Both", "<pValue>Unlimited</pValue><Min>0.5</Min><Max>2.5</Max>"));
    expect_limits(limits("Stepped"), 8, 16, 4);
    expect_limits(limits("Complete"), 1, 9, 2);
    EXPECT_EQ(float_limits("Lower").minimum, 6.5);
    EXPECT_EQ(float_limits("Lower").maximum, 40);
    EXPECT_EQ(float_limits("Upper").minimum, 4);
    EXPECT_EQ(float_limits("Upper").maximum, 7.5);
    EXPECT_EQ(float_limits("Both").minimum, 0.5);
    EXPECT_EQ(float_limits("Both").maximum, 2.5);
    evaluation state;
    node::integer_limits got;
    EXPECT_FALSE(find("Unlimited").get_limits(state, got));
    EXPECT_EQ(state.reason, "no acknowledge");
}

TEST_F(NodeGraph, BooleanIsOneOrZeroByDefault) {
    load(integer_register("Reg", "0x100") + element("Boolean", "B", "<pValue>Reg</pValue>") +
         element("Boolean", "Inverse", "<Value>false</Value><OnValue>0</OnValue><OffValue>1</OffValue>"));
    write("B", std::int64_t{2});
    EXPECT_EQ(camera.get(0x100), 1U);
    EXPECT_EQ(integer("B"), 1);
    write("B", std::int64_t{0});
    EXPECT_EQ(camera.get(0x100), 0U);
    EXPECT_EQ(integer("Inverse"), 0);
}

TEST_F(NodeGraph, EnumerationHasTheEntriesOfItsXml) {
    load(
        constant("No", "0") +
        element(
            "Enumeration", "E",
            "<EnumEntry Name=\"Two\"><Value>2</Value></EnumEntry>"
            "<EnumEntry Name=\"One\"><pIsImplemented>No</pIsImplemented><Value>1</Value></EnumEntry><Value>2</Value>"));
    auto const& entries = dynamic_cast<openpv::enumeration_node&>(find("E")).entries();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0]->entry_name(), "Two");
    EXPECT_EQ(entries[0]->value(), 2);
    EXPECT_EQ(entries[1]->value(), 1);
    evaluation state;
    bool implemented = false;
    EXPECT_TRUE(entries[0]->is_implemented(state, implemented));
    EXPECT_TRUE(implemented);
    EXPECT_TRUE(entries[1]->is_implemented(state, implemented));
    EXPECT_FALSE(implemented);
}

TEST_F(NodeGraph, CategoryAndPortAreFound) {
    load(element("Category", "Root", ""));
    for (char const* const name : {"Root", "Device"}) {
        EXPECT_EQ(find(name).type(), std::nullopt);
    }
}
