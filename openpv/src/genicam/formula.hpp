// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Formulas of GenICam XMLs: SwissKnife, Converter and their integer forms.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace openpv {

/// Provides the values of a formula's variables. Each variable is read at most once per evaluation, and only if the
/// result depends on it.
class formula_variables {
public:
    /// \param index position in `formula_symbols::variables`
    /// \return whether `value` was set; false ends the evaluation
    virtual bool load(std::size_t index, std::int64_t& value) = 0;
    virtual bool load(std::size_t index, double& value) = 0;

protected:
    ~formula_variables() = default;
};

/// The names that a formula may use, besides functions and the constants PI and E.
struct formula_symbols {
    std::vector<std::string> variables;
    std::vector<std::pair<std::string, std::string>> expressions;  ///< name and text: sub-expressions and constants
};

/// A compiled formula. Immutable, so that several threads may evaluate it at once.
///
/// Evaluation is safe for every text and every value: it takes time proportional to the size of the formula, allocates
/// nothing, and each operation has a defined result or ends with an error. All operands have the type of the
/// evaluation: 64-bit integers or doubles.
///
/// Integers: overflow, division by zero and shifts by less than 0 or more than 63 bits are errors. Bits shifted out are
/// dropped. Quotients, and powers with negative exponents, are rounded towards zero. Doubles: results that are infinite
/// or not a number are errors. Bitwise operators truncate their operands to integers.
class formula {
public:
    /// \param error receives the reason why the text is not a formula; empty on success
    static formula compile(std::string_view text, formula_symbols const& symbols, std::string& error);

    /// Whether the text has a constant or a function that needs doubles, for example 0.5, PI or SQRT.
    bool needs_doubles() const { return needs_doubles_; }
    /// Evaluates with doubles, also for an integer result, which is then truncated. For variables that are doubles.
    void use_doubles() { needs_doubles_ = true; }

    /// \param error receives the reason of a failure, a static text; null if `variables` failed
    /// \return whether `result` was set
    bool evaluate(formula_variables& variables, std::int64_t& result, char const*& error) const;
    bool evaluate(formula_variables& variables, double& result, char const*& error) const;

private:
    friend class formula_compiler;
    enum class operation : std::uint8_t;
    struct instruction {
        operation code;
        std::uint32_t operand = 0;  ///< variable index, or jump target
        std::int64_t integer = 0;   ///< constant
        double real = 0;            ///< constant
    };

    template <class number>
    class machine;

    std::vector<instruction> program_;
    bool needs_doubles_ = false;
};

/// Truncates towards zero.
/// \return whether the result is in the range of 64-bit integers; false for NaN
bool to_integer(double value, std::int64_t& whole);

}  // namespace openpv
