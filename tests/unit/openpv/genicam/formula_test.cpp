// SPDX-License-Identifier: MIT
#include "genicam/formula.hpp"

#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

using openpv::formula;
using openpv::formula_symbols;
using openpv::formula_variables;
using testing::HasSubstr;

namespace {

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

/// Variables with fixed values; counts how often each is read.
class values final : public formula_variables {
public:
    std::vector<double> reals;
    std::vector<std::int64_t> integers;
    std::map<std::size_t, int> reads;
    std::optional<std::size_t> broken;

    bool load(std::size_t index, std::int64_t& value) override {
        ++reads[index];
        value = index < integers.size() ? integers[index] : 0;
        return index != broken;
    }
    bool load(std::size_t index, double& value) override {
        ++reads[index];
        value = index < reals.size() ? reals[index] : 0;
        return index != broken;
    }
};

formula compile(std::string const& text, formula_symbols const& symbols = {}) {
    std::string error;
    formula made = formula::compile(text, symbols, error);
    EXPECT_EQ(error, "") << text;
    return made;
}

std::string compile_error(std::string const& text, formula_symbols const& symbols = {}) {
    std::string error;
    formula::compile(text, symbols, error);
    return error;
}

/// A value, or the reason of a failure.
template <class number>
using outcome = std::variant<number, std::string>;

template <class number>
outcome<number> evaluate(formula const& one, formula_variables& variables) {
    number result{};
    char const* error = nullptr;
    if (one.evaluate(variables, result, error)) {
        return result;
    }
    return std::string(error != nullptr ? error : "a variable");
}

outcome<std::int64_t> integer(std::string const& text) {
    values none;
    return evaluate<std::int64_t>(compile(text), none);
}

outcome<double> real(std::string const& text) {
    values none;
    return evaluate<double>(compile(text), none);
}

#define EXPECT_INTEGER(text, expected) EXPECT_EQ(integer(text), outcome<std::int64_t>(std::int64_t{expected})) << text
#define EXPECT_REAL(text, expected) EXPECT_EQ(real(text), outcome<double>(double{expected})) << text

template <class number>
bool fails(outcome<number> const& got, std::string const& reason) {
    auto const* const text = std::get_if<std::string>(&got);
    return text != nullptr && text->find(reason) != std::string::npos;
}

#define EXPECT_FAILURE(got, reason) EXPECT_TRUE(fails(got, reason))

}  // namespace

TEST(Formula, CalculatesIntegers) {
    EXPECT_INTEGER("1 + 2 * 3", 7);
    EXPECT_INTEGER("(1 + 2) * 3", 9);
    EXPECT_INTEGER("10 - 4 - 3", 3);
    EXPECT_INTEGER("7 / 2", 3);
    EXPECT_INTEGER("-7 / 2", -3);
    EXPECT_INTEGER("-7 % 3", -1);
    EXPECT_INTEGER("2 ** 3 ** 2", 512);
    EXPECT_INTEGER("-2 ** 2", 4);
    EXPECT_INTEGER("2 ** -1", 0);
    EXPECT_INTEGER("(0-1) ** -3", -1);
    EXPECT_INTEGER("3 - -2", 5);
    EXPECT_INTEGER("+5", 5);
    EXPECT_INTEGER("~0", -1);
    EXPECT_INTEGER("~5 & 0xF", 10);
    EXPECT_INTEGER("1 ** -3", 1);
    EXPECT_INTEGER("1 +\n\t\v\f\r 2", 3);
}

TEST(Formula, HasThePrecedencesOfItsOperators) {
    EXPECT_INTEGER("1 || 0 && 0", 1);
    EXPECT_INTEGER("3 | 1 ^ 2", 3);
    EXPECT_INTEGER("1 ^ 3 & 2", 3);
    EXPECT_INTEGER("2 & 2 = 2", 0);
    EXPECT_INTEGER("2 = 1 < 2", 0);
    EXPECT_INTEGER("2 = 1 <= 1", 0);
    EXPECT_INTEGER("2 = 2 > 1", 0);
    EXPECT_INTEGER("2 = 2 >= 1", 0);
    EXPECT_INTEGER("1 < 1 << 1", 1);
    EXPECT_INTEGER("32 >> 1 + 1", 8);
    EXPECT_INTEGER("10 + 7 % 4", 13);
    EXPECT_INTEGER("2 * 3 ** 2", 18);
}

TEST(Formula, ComparesAndChooses) {
    EXPECT_INTEGER("1 = 1", 1);
    EXPECT_INTEGER("1 == 2", 0);
    EXPECT_INTEGER("1 <> 2", 1);
    EXPECT_INTEGER("1 != 1", 0);
    EXPECT_INTEGER("1 < 2", 1);
    EXPECT_INTEGER("2 <= 2", 1);
    EXPECT_INTEGER("1 > 2", 0);
    EXPECT_INTEGER("2 >= 3", 0);
    EXPECT_INTEGER("1 && 2", 1);
    EXPECT_INTEGER("1 && 0", 0);
    EXPECT_INTEGER("0 || 7", 1);
    EXPECT_INTEGER("0 || 0", 0);
    EXPECT_INTEGER("1 ? 10 : 20", 10);
    EXPECT_INTEGER("0 ? 10 : 0 ? 20 : 30", 30);
    EXPECT_INTEGER("1 ? 1 ? 5 : 6 : 7", 5);
    EXPECT_INTEGER("1 + 1 = 2 ? 3 : 4", 3);
}

TEST(Formula, CombinesBits) {
    EXPECT_INTEGER("0xF0 | 0x0F", 0xFF);
    EXPECT_INTEGER("0xFF ^ 0x0F", 0xF0);
    EXPECT_INTEGER("0xFF & 0x3C", 0x3C);
    EXPECT_INTEGER("1 << 4 + 1", 32);
    EXPECT_INTEGER("0xFF00 >> 8", 0xFF);
    EXPECT_INTEGER("-8 >> 1", -4);
    EXPECT_INTEGER("1 | 6 & 4 ^ 5", 1 | ((6 & 4) ^ 5));
    EXPECT_INTEGER("0xFFFFFFFFFFFFFFFF", -1);
    EXPECT_INTEGER("1 << 63", lowest);
    EXPECT_INTEGER("3 << 63", lowest) << "bits shifted out are dropped";
    EXPECT_REAL("0xFF00 >> 8", 255);
    EXPECT_REAL("~0", -1);
}

TEST(Formula, HasFunctions) {
    EXPECT_INTEGER("SGN(-5)", -1);
    EXPECT_INTEGER("NEG(5)", -5);
    EXPECT_INTEGER("ABS(-5)", 5);
    EXPECT_INTEGER("TRUNC(5)", 5);
    EXPECT_INTEGER("sqrt(16) * 2", 8);
    EXPECT_INTEGER("ROUND(2.5)", 3);
    EXPECT_REAL("TRUNC(-2.7)", -2);
    EXPECT_REAL("FLOOR(-2.2)", -3);
    EXPECT_REAL("CEIL(2.2)", 3);
    EXPECT_REAL("ROUND(2.345, 2)", 2.35);
    EXPECT_REAL("ROUND(2345.6, -2)", 2300);
    EXPECT_REAL("ROUND(2345.6, -400)", 0);
    EXPECT_REAL("ROUND(2.345, 1.9)", 2.3) << "half a decimal does not exist";
    EXPECT_REAL("ABS(-0.5)", 0.5);
    EXPECT_REAL("SGN(0.0)", 0);
    EXPECT_REAL("NEG(1.5)", -1.5);
    EXPECT_REAL("SQRT(2.25)", 1.5);
    EXPECT_REAL("LG(1000)", 3);
    EXPECT_REAL("LN(E)", 1);
    EXPECT_REAL("EXP(0)", 1);
    EXPECT_REAL("SIN(0)", 0);
    EXPECT_REAL("COS(0)", 1);
    EXPECT_REAL("TAN(0)", 0);
    EXPECT_REAL("ASIN(1) * 2 - PI", 0);
    EXPECT_REAL("ACOS(1)", 0);
    EXPECT_REAL("ATAN(1) * 4 - PI", 0);
}

TEST(Formula, CalculatesFunctionsOfDoublesForAnIntegerResult) {
    EXPECT_INTEGER("SIN(1) * 10", 8);
    EXPECT_INTEGER("COS(1) * 10", 5);
    EXPECT_INTEGER("TAN(1) * 10", 15);
    EXPECT_INTEGER("ASIN(1) * 10", 15);
    EXPECT_INTEGER("ACOS(0) * 10", 15);
    EXPECT_INTEGER("ATAN(1) * 10", 7);
    EXPECT_INTEGER("EXP(2)", 7);
    EXPECT_INTEGER("LN(8) * 10", 20);
    EXPECT_INTEGER("LG(50) * 10", 16);
    EXPECT_INTEGER("SQRT(3) * 10", 17);
}

TEST(Formula, ReadsNumbersOfEachForm) {
    EXPECT_INTEGER("0XFF", 255);
    EXPECT_INTEGER("-0x10", -16);
    EXPECT_REAL("0xFFFFFFFFFFFFFFFF", -1);
    EXPECT_REAL("-1.5", -1.5);
    EXPECT_FAILURE(integer("9223372036854775808"), "out of range");
    EXPECT_REAL("9223372036854775808", 9223372036854775808.0);
}

TEST(Formula, CalculatesDoubles) {
    EXPECT_REAL("7 / 2", 3.5);
    EXPECT_REAL("1.5e3 + .5", 1500.5);
    EXPECT_REAL("7.5 % 2", 1.5);
    EXPECT_REAL("2 ** 0.5 - SQRT(2)", 0);
    EXPECT_REAL("0.5 < 0.6", 1);
    EXPECT_REAL("0.5 && 0.1", 1);
    EXPECT_INTEGER("7 * 0.5", 3) << "an integer formula with a fraction is evaluated with doubles and truncated";
}

TEST(Formula, EndsWithAnErrorForEachHostileIntegerOperation) {
    EXPECT_FAILURE(integer("(1<<63)/(0-1)"), "out of range");
    EXPECT_INTEGER("(1<<63)%(0-1)", 0);
    EXPECT_FAILURE(integer("1/0"), "division by zero");
    EXPECT_FAILURE(integer("1%0"), "division by zero");
    EXPECT_FAILURE(integer("0 ** -1"), "division by zero");
    EXPECT_FAILURE(integer("1 << 64"), "a shift");
    EXPECT_FAILURE(integer("1 >> 64"), "a shift");
    EXPECT_FAILURE(integer("1 << -1"), "a shift");
    EXPECT_FAILURE(integer("1 >> 0x7FFFFFFFFFFFFFFF"), "a shift");
    EXPECT_FAILURE(integer("2 ** 63"), "out of range");
    EXPECT_FAILURE(integer("3 ** 0x7FFFFFFFFFFFFFFF"), "out of range");
    EXPECT_FAILURE(integer("0x7FFFFFFFFFFFFFFF + 1"), "out of range");
    EXPECT_FAILURE(integer("-9223372036854775808 - 1"), "out of range");
    EXPECT_FAILURE(integer("0x7FFFFFFFFFFFFFFF * 2"), "out of range");
    EXPECT_FAILURE(integer("-(1<<63)"), "out of range");
    EXPECT_FAILURE(integer("ABS(1<<63)"), "out of range");
    EXPECT_FAILURE(integer("NEG(1<<63)"), "out of range");
    EXPECT_FAILURE(integer("1e300 * 1"), "out of range");
    EXPECT_FAILURE(integer("2.0 ** 63"), "out of range");
    EXPECT_INTEGER("-(2.0 ** 63)", lowest);
    EXPECT_INTEGER("-9223372036854775808", lowest);
    EXPECT_INTEGER("9223372036854775807", highest);
    EXPECT_INTEGER("(0-2) ** 63", lowest);
    EXPECT_INTEGER("1 ** 0x7FFFFFFFFFFFFFFF", 1);
}

TEST(Formula, EndsWithAnErrorForEachHostileDoubleOperation) {
    EXPECT_FAILURE(real("1/0"), "division by zero");
    EXPECT_FAILURE(real("1 % 0.0"), "division by zero");
    EXPECT_FAILURE(real("1e308 * 10"), "out of range");
    EXPECT_FAILURE(real("10 ** 400"), "out of range");
    EXPECT_FAILURE(real("EXP(1000)"), "out of range");
    EXPECT_FAILURE(real("LN(0)"), "out of range");
    EXPECT_FAILURE(real("LN(-1)"), "not a number");
    EXPECT_FAILURE(real("SQRT(-1)"), "not a number");
    EXPECT_FAILURE(real("ASIN(2)"), "not a number");
    EXPECT_FAILURE(real("ROUND(1, 400)"), "not a number");
    EXPECT_FAILURE(real("1e19 & 1"), "out of range");
    EXPECT_FAILURE(real("1 << 1e19"), "out of range");
    EXPECT_FAILURE(real("1 << 64.5"), "a shift");
    EXPECT_FAILURE(real("~1e300"), "out of range");
    for (double const value : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        values variables;
        variables.reals = {value};
        EXPECT_FAILURE(evaluate<double>(compile("X", {{"X"}, {}}), variables), "not a number");
    }
}

TEST(Formula, EvaluatesOnlyWhatItsResultDependsOn) {
    formula_symbols const symbols{{"X", "Y"}, {}};
    values variables;
    variables.integers = {0, 5};
    EXPECT_EQ(evaluate<std::int64_t>(compile("X = 0 ? 7 : 100 / X", symbols), variables), outcome<std::int64_t>(7));
    EXPECT_EQ(evaluate<std::int64_t>(compile("X && Y", symbols), variables), outcome<std::int64_t>(0));
    EXPECT_EQ(evaluate<std::int64_t>(compile("X = 0 || Y / X", symbols), variables), outcome<std::int64_t>(1));
    EXPECT_EQ(variables.reads[1], 0);
}

TEST(Formula, ReadsAVariableOnce) {
    values variables;
    variables.integers = {3};
    EXPECT_EQ(evaluate<std::int64_t>(compile("X * X + X", {{"X"}, {}}), variables), outcome<std::int64_t>(12));
    EXPECT_EQ(variables.reads[0], 1);
}

TEST(Formula, EndsWhenAVariableCannotBeRead) {
    values variables;
    variables.broken = 0;
    formula_symbols const symbols{{"X", "Y"}, {}};
    EXPECT_FAILURE(evaluate<std::int64_t>(compile("X + Y", symbols), variables), "a variable");
    EXPECT_FAILURE(evaluate<double>(compile("X + Y", symbols), variables), "a variable");
    EXPECT_EQ(variables.reads[1], 0);
}

TEST(Formula, UsesConstantsAndSubExpressions) {
    formula_symbols const symbols{{"X", "X.Max", "E"}, {{"C", "5"}, {"TWICE", "X * 2"}, {"SUM", "TWICE + C"}}};
    values variables;
    variables.integers = {10, 99, 4};
    EXPECT_EQ(evaluate<std::int64_t>(compile("SUM * 2", symbols), variables), outcome<std::int64_t>(50))
        << "a sub-expression is an operand, regardless of its operators";
    EXPECT_EQ(evaluate<std::int64_t>(compile("X.Max - X", symbols), variables), outcome<std::int64_t>(89));
    EXPECT_EQ(evaluate<std::int64_t>(compile("E", symbols), variables), outcome<std::int64_t>(4))
        << "a variable hides a constant";
    EXPECT_EQ(evaluate<std::int64_t>(compile("_Gain_Raw", {{"_Gain_Raw"}, {}}), variables), outcome<std::int64_t>(10));
}

TEST(Formula, RefusesTextsThatAreNotFormulas) {
    for (char const* const text :
         {"",      "1 +",       "* 2", "(1", "1)",   "1 2",   "1 ? 2", "1 ? : 2", "X",  "FOO(1)", "SIN 1",
          "SIN()", "ABS(1, 2)", "0x",  "1a", "0x1g", "1e999", "$",     "1 = = 2", "&&", "1..2",   "1 ? 2 3"}) {
        EXPECT_NE(compile_error(text), "") << text;
    }
    EXPECT_THAT(compile_error("1 + Missing"), HasSubstr("it uses \"Missing\", which is not defined"));
}

TEST(Formula, WithAnErrorHasNoResult) {
    std::string error;
    values none;
    formula const made = formula::compile("1 2", {}, error);
    EXPECT_NE(error, "");
    EXPECT_FAILURE(evaluate<std::int64_t>(made, none), "not valid");
}

namespace {

constexpr char const* too_deep = "too long or too deeply nested";

std::string repeat(std::string const& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

}  // namespace

TEST(Formula, MayReachEachBound) {
    EXPECT_INTEGER(repeat("1 ** ", 63) + "1", 1) << "64 operands wait for their operators";
    EXPECT_THAT(compile_error(repeat("1 ** ", 64) + "1"), HasSubstr(too_deep));
    EXPECT_INTEGER(repeat("(", 64) + "1" + repeat(")", 64), 1);
    EXPECT_THAT(compile_error(repeat("(", 65) + "1" + repeat(")", 65)), HasSubstr(too_deep));
    EXPECT_INTEGER(repeat("1+", 8191) + "1", 8192) << "16383 instructions";
    EXPECT_THAT(compile_error(repeat("1+", 8192) + "1"), HasSubstr(too_deep));
    formula_symbols many;
    many.variables.resize(127, "Y");
    many.variables.emplace_back("X");
    values variables;
    variables.integers.resize(128, 7);
    EXPECT_EQ(evaluate<std::int64_t>(compile("X", many), variables), outcome<std::int64_t>(7));
}

TEST(Formula, ThatContainsItselfTwiceIsRefusedAtOnce) {
    EXPECT_THAT(compile_error("A", {{}, {{"A", "ROUND(A, A)"}}}), HasSubstr(too_deep));
    EXPECT_THAT(compile_error("A", {{}, {{"A", "A ? A : A"}}}), HasSubstr(too_deep));
}

TEST(Formula, HasABoundedSize) {
    EXPECT_THAT(compile_error(repeat("(", 1'000'000) + "1"), HasSubstr(too_deep));
    EXPECT_THAT(compile_error(repeat("-", 1'000'000) + "(1)"), HasSubstr(too_deep));
    EXPECT_THAT(compile_error(repeat("1+", 1'000'000) + "1"), HasSubstr(too_deep));
    EXPECT_THAT(compile_error(repeat("2**", 1000) + "1"), HasSubstr(too_deep));
    EXPECT_THAT(compile_error("A", {{}, {{"A", "B + B"}, {"B", "A + A"}}}), HasSubstr(too_deep));
    formula_symbols doubling{{}, {{"S0", "1"}}};
    for (int i = 1; i < 60; ++i) {
        std::string const before = "S" + std::to_string(i - 1);
        doubling.expressions.emplace_back("S" + std::to_string(i), before + "+" + before);
    }
    EXPECT_THAT(compile_error("S59", doubling), HasSubstr(too_deep));
    formula_symbols many;
    many.variables.resize(129, "X");
    EXPECT_THAT(compile_error("1", many), HasSubstr("more than 128 variables"));
    EXPECT_INTEGER(repeat("0 ? 1 : ", 500) + "2", 2) << "chains of conditions may be long";
}

// Properties: random formulas against an independent evaluation of the same tree, with wider numbers.

namespace {

struct tree {
    std::string symbol;  ///< operator, function, or empty for a leaf
    std::vector<tree> parts;
    std::int64_t leaf = 0;
    bool is_variable = false;
};

constexpr int variable_count = 3;

std::string print(tree const& one) {
    if (one.parts.empty()) {
        return one.is_variable ? "V" + std::to_string(one.leaf) : "(" + std::to_string(one.leaf) + ")";
    }
    std::string const first = print(one.parts[0]);
    if (one.symbol == "?") {
        return "(" + first + " ? " + print(one.parts[1]) + " : " + print(one.parts[2]) + ")";
    }
    return one.parts.size() == 1 ? one.symbol + "(" + first + ")"
                                 : "(" + first + " " + one.symbol + " " + print(one.parts[1]) + ")";
}

template <class generator>
tree make_tree(int depth, generator&& number) {
    static std::vector<std::string> const symbols{"+",  "-", "*", "/",  "%",   "**",  "<<", ">>", "&",
                                                  "|",  "^", "=", "<>", "<",   ">",   "<=", ">=", "&&",
                                                  "||", "?", "~", "-",  "ABS", "SGN", "NEG"};
    tree made;
    if (depth == 0 || *rc::gen::inRange(0, 5) == 0) {
        made.is_variable = *rc::gen::inRange(0, 2) == 0;
        made.leaf = made.is_variable ? *rc::gen::inRange(0, variable_count) : number();
        return made;
    }
    auto const choice = *rc::gen::inRange<std::size_t>(0, symbols.size());
    made.symbol = symbols[choice];
    std::size_t const parts = made.symbol == "?" ? 3 : choice >= 20 ? 1 : 2;
    for (std::size_t i = 0; i < parts; ++i) {
        made.parts.push_back(make_tree(depth - 1, number));
    }
    return made;
}

__extension__ typedef __int128 wide;           // NOLINT(modernize-use-using)
__extension__ typedef unsigned __int128 bits;  // NOLINT(modernize-use-using)
using wide_result = std::optional<wide>;

wide_result in_range(wide value) {
    return value < lowest || value > highest ? std::nullopt : wide_result(value);
}

wide_result reference_power(wide base, wide exponent) {
    if (exponent < 0) {
        if (base == 0) {
            return std::nullopt;
        }
        return base == 1 ? 1 : base != -1 ? 0 : exponent % 2 == 0 ? 1 : -1;
    }
    if (base == 0 || base == 1) {
        return exponent == 0 ? 1 : base;
    }
    if (base == -1) {
        return exponent % 2 == 0 ? 1 : -1;
    }
    wide result = 1;
    for (wide i = 0; i < exponent; ++i) {
        result *= base;
        if (!in_range(result)) {
            return std::nullopt;
        }
    }
    return result;
}

wide_result reference(tree const& one, std::vector<std::int64_t> const& variables) {
    if (one.parts.empty()) {
        return one.is_variable ? wide(variables[static_cast<std::size_t>(one.leaf)]) : wide(one.leaf);
    }
    auto const part = [&](std::size_t i) { return reference(one.parts[i], variables); };
    wide_result const a = part(0);
    if (!a) {
        return std::nullopt;
    }
    std::string const& s = one.symbol;
    if (s == "?") {
        return *a != 0 ? part(1) : part(2);
    }
    if (one.parts.size() == 1) {
        return s == "~"     ? in_range(-*a - 1)
               : s == "ABS" ? in_range(*a < 0 ? -*a : *a)
               : s == "SGN" ? wide_result(*a > 0   ? 1
                                          : *a < 0 ? -1
                                                   : 0)
                            : in_range(-*a);
    }
    if ((s == "&&" && *a == 0) || (s == "||" && *a != 0)) {
        return s == "||" ? 1 : 0;
    }
    wide_result const b = part(1);
    if (!b) {
        return std::nullopt;
    }
    if ((s == "/" || s == "%") && *b == 0) {
        return std::nullopt;
    }
    if ((s == "<<" || s == ">>") && (*b < 0 || *b > 63)) {
        return std::nullopt;
    }
    std::map<std::string, std::function<wide_result()>> const operations{
        {"+", [&] { return in_range(*a + *b); }},
        {"-", [&] { return in_range(*a - *b); }},
        {"*", [&] { return in_range(*a * *b); }},
        {"/", [&] { return in_range(*a / *b); }},
        {"%", [&] { return wide_result(*a % *b); }},
        {"**", [&] { return reference_power(*a, *b); }},
        // Multiplication modulo 2 to the power of 64, and division rounded towards minus infinity.
        {"<<",
         [&] {
             return wide_result(static_cast<std::int64_t>(
                 static_cast<std::uint64_t>(static_cast<bits>(*a) * (static_cast<bits>(1) << *b))));
         }},
        {">>",
         [&] {
             wide const d = wide(1) << *b;
             return wide_result(*a >= 0 ? *a / d : -((-*a + d - 1) / d));
         }},
        {"&", [&] { return wide_result(*a & *b); }},
        {"|", [&] { return wide_result(*a | *b); }},
        {"^", [&] { return wide_result(*a ^ *b); }},
        {"=", [&] { return wide_result(*a == *b); }},
        {"<>", [&] { return wide_result(*a != *b); }},
        {"<", [&] { return wide_result(*a < *b); }},
        {">", [&] { return wide_result(*a > *b); }},
        {"<=", [&] { return wide_result(*a <= *b); }},
        {">=", [&] { return wide_result(*a >= *b); }},
        {"&&", [&] { return wide_result(*b != 0); }},
        {"||", [&] { return wide_result(*b != 0); }},
    };
    return operations.at(s)();
}

/// Values at the edges of the type, and small ones.
std::int64_t any_integer() {
    return *rc::gen::oneOf(rc::gen::inRange<std::int64_t>(-70, 70),
                           rc::gen::element(lowest, lowest + 1, highest, highest - 1, std::int64_t{1} << 32),
                           rc::gen::arbitrary<std::int64_t>());
}

}  // namespace

RC_GTEST_PROP(Formula, GivesTheResultsOfWiderIntegersOrAnError, ()) {
    tree const one = make_tree(5, any_integer);
    values variables;
    for (int i = 0; i < variable_count; ++i) {
        variables.integers.push_back(any_integer());
    }
    std::string const text = print(one);
    auto const got = evaluate<std::int64_t>(compile(text, {{"V0", "V1", "V2"}, {}}), variables);
    wide_result const expected = reference(one, variables.integers);
    RC_LOG() << text;
    RC_ASSERT(std::holds_alternative<std::int64_t>(got) == expected.has_value());
    if (expected) {
        RC_ASSERT(wide(std::get<std::int64_t>(got)) == *expected);
    }
}

namespace {

struct real_reference {
    bool valid = true;
    long double value = 0;
};

/// Sums, differences, products and quotients of small numbers, with more digits.
real_reference reference_real(tree const& one, std::vector<double> const& variables) {
    if (one.parts.empty()) {
        return {true, one.is_variable ? static_cast<long double>(variables[static_cast<std::size_t>(one.leaf)])
                                      : static_cast<long double>(one.leaf)};
    }
    real_reference const a = reference_real(one.parts[0], variables);
    real_reference const b = reference_real(one.parts[1], variables);
    if (!a.valid || !b.valid || (one.symbol == "/" && b.value == 0)) {
        return {false, 0};
    }
    return {true, one.symbol == "+"   ? a.value + b.value
                  : one.symbol == "-" ? a.value - b.value
                  : one.symbol == "*" ? a.value * b.value
                                      : a.value / b.value};
}

tree make_real_tree(int depth) {
    static std::vector<std::string> const symbols{"+", "-", "*", "/"};
    tree made;
    if (depth == 0) {
        made.is_variable = *rc::gen::inRange(0, 2) == 0;
        made.leaf = made.is_variable ? *rc::gen::inRange(0, variable_count) : *rc::gen::inRange<std::int64_t>(1, 100);
        return made;
    }
    made.symbol = symbols[*rc::gen::inRange<std::size_t>(0, symbols.size())];
    made.parts = {make_real_tree(depth - 1), make_real_tree(depth - 1)};
    return made;
}

}  // namespace

RC_GTEST_PROP(Formula, GivesTheResultsOfWiderDoubles, ()) {
    tree const one = make_real_tree(2);
    values variables;
    for (int i = 0; i < variable_count; ++i) {
        variables.reals.push_back(*rc::gen::inRange(1, 1000) / 8.0);
    }
    auto const got = evaluate<double>(compile(print(one), {{"V0", "V1", "V2"}, {}}), variables);
    real_reference const expected = reference_real(one, variables.reals);
    RC_LOG() << print(one);
    RC_PRE(!expected.valid || expected.value == 0 || fabsl(expected.value) > 1e-6L);
    if (std::holds_alternative<double>(got) && expected.valid) {
        long double const scale = std::max(1.0L, fabsl(expected.value));
        RC_ASSERT(fabsl(static_cast<long double>(std::get<double>(got)) - expected.value) <= 1e-9L * scale);
    } else {
        RC_ASSERT(!std::holds_alternative<double>(got) == !expected.valid);
    }
}

RC_GTEST_PROP(Formula, NeverFailsToEndForAnyText, ()) {
    static std::vector<std::string> const tokens{"1",  "0",    "(",  ")",  "?",   ":",  "+",   "-", "*",     "/",  "%",
                                                 "**", "<<",   ">>", "X",  "C",   "&&", "||",  "~", "ABS(",  "LN", ",",
                                                 "PI", "0x7F", "=",  "<>", "1e3", ".5", "SUB", " ", "TRUNC", "$",  "E"};
    auto const chosen = *rc::gen::container<std::vector<std::size_t>>(rc::gen::inRange<std::size_t>(0, tokens.size()));
    std::string text;
    for (std::size_t const each : chosen) {
        text += tokens[each];
    }
    std::string error;
    formula const made = formula::compile(text, {{"X"}, {{"C", "3"}, {"SUB", "X / C"}}}, error);
    values variables;
    variables.integers = {any_integer()};
    variables.reals = {static_cast<double>(variables.integers[0])};
    auto const got = evaluate<std::int64_t>(made, variables);
    auto const got_real = evaluate<double>(made, variables);
    if (!error.empty()) {
        RC_ASSERT(std::holds_alternative<std::string>(got));
        RC_ASSERT(std::holds_alternative<std::string>(got_real));
    } else if (auto const* const value = std::get_if<double>(&got_real)) {
        RC_ASSERT(std::isfinite(*value));
    }
}
