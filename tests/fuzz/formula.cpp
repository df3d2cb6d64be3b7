// SPDX-License-Identifier: MIT
/// \file
/// A formula of a GenICam XML, with variables that change while it is evaluated.
///
/// Input: 32 bytes, the first contents of the four variables A, B, C and D; then lines. The first line is the formula,
/// the others are the sub-expressions S, T, U and so on.

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_input.hpp"
#include "genicam/formula.hpp"

namespace {

constexpr std::size_t variable_count = 4;

/// Each read of a variable changes the contents of all.
class changing_variables final : public openpv::formula_variables {
public:
    explicit changing_variables(std::array<std::uint64_t, variable_count> const& contents) : contents_(contents) {}

    bool load(std::size_t index, std::int64_t& value) override {
        require(index < variable_count, "only variables that exist are read");
        require(!(read_ & 1U << index), "each variable is read once");
        value = static_cast<std::int64_t>(contents_[index]);
        change(index);
        return true;
    }
    bool load(std::size_t index, double& value) override {
        std::int64_t bits = 0;
        bool const loaded = load(index, bits);
        value = std::bit_cast<double>(bits);
        return loaded;
    }

private:
    void change(std::size_t index) {
        read_ |= 1U << index;
        for (std::uint64_t& each : contents_) {
            each = std::rotl(each, 7) ^ contents_[index];
        }
    }

    std::array<std::uint64_t, variable_count> contents_;
    unsigned read_ = 0;
};

/// Evaluates twice: the result depends on the variables only.
template <class number>
void evaluate(openpv::formula const& made, std::array<std::uint64_t, variable_count> const& contents) {
    std::array<number, 2> results{};
    std::array<bool, 2> succeeded{};
    for (std::size_t i = 0; i < 2; ++i) {
        changing_variables variables(contents);
        char const* error = nullptr;
        succeeded[i] = made.evaluate(variables, results[i], error);
        require(succeeded[i] == (error == nullptr), "a failure has a reason");
        if constexpr (std::is_same_v<number, double>) {
            require(!succeeded[i] || std::isfinite(results[i]), "a result is finite");
        }
    }
    require(succeeded[0] == succeeded[1] && std::memcmp(&results[0], &results[1], sizeof(number)) == 0,
            "the same variables give the same result");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    std::array<std::uint64_t, variable_count> contents{};
    auto const first = input.bytes(sizeof(contents));
    std::memcpy(contents.data(), first.data(), first.size());
    std::string const text = input.text();

    openpv::formula_symbols symbols{{"A", "B", "C", "D"}, {}};
    std::size_t const end = std::min(text.find('\n'), text.size());
    for (std::size_t at = end; at < text.size() && symbols.expressions.size() < 8;) {
        std::size_t const next = std::min(text.find('\n', at + 1), text.size());
        std::string const name(1, static_cast<char>('S' + symbols.expressions.size()));
        symbols.expressions.emplace_back(name, text.substr(at + 1, next - at - 1));
        at = next;
    }
    std::string error;
    auto made = openpv::formula::compile(std::string_view(text).substr(0, end), symbols, error);
    evaluate<std::int64_t>(made, contents);
    evaluate<double>(made, contents);
    made.use_doubles();
    evaluate<std::int64_t>(made, contents);
    return 0;
}
