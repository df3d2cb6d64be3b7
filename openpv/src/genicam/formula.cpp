// SPDX-License-Identifier: MIT
#include "genicam/formula.hpp"

#include <algorithm>
#include <array>
#include <bitset>
#include <charconv>
#include <cmath>
#include <numbers>
#include <optional>
#include <type_traits>

namespace openpv {

enum class formula::operation : std::uint8_t {
    constant,
    variable,
    jump,
    jump_if_zero,
    skip_and,  ///< jumps and keeps 0 if the operand is 0
    skip_or,   ///< jumps and keeps 1 if the operand is not 0
    to_truth,
    negate,
    complement,
    add,
    subtract,
    multiply,
    divide,
    remainder,
    power,
    shift_left,
    shift_right,
    bit_and,
    bit_or,
    bit_xor,
    equal,
    not_equal,
    less,
    less_or_equal,
    greater,
    greater_or_equal,
    sign,
    absolute,
    truncate,
    floor,
    ceiling,
    round,
    round_digits,
    sine,
    cosine,
    tangent,
    arc_sine,
    arc_cosine,
    arc_tangent,
    exponential,
    natural_logarithm,
    decimal_logarithm,
    square_root,
};

namespace {

// Far above what formulas of cameras need. Together they bound the memory and time of an evaluation.
constexpr std::size_t max_instructions = 16'384;
constexpr std::size_t max_variables = 128;
constexpr int max_operands = 64;  ///< waiting for their operator at the same time
constexpr int max_nesting = 64;   ///< parentheses, operators and sub-expressions within each other

bool is_letter(char one) {
    return (one >= 'a' && one <= 'z') || (one >= 'A' && one <= 'Z') || one == '_';
}
bool is_digit(char one) {
    return one >= '0' && one <= '9';
}

}  // namespace

/// Precedence climbing. Emits instructions for a stack machine, operands first.
class formula_compiler {
public:
    using operation = formula::operation;

    formula_compiler(formula_symbols const& symbols, formula& made) : symbols_(symbols), made_(made) {}

    std::string compile(std::string_view text) {
        if (symbols_.variables.size() > max_variables) {
            fail("it has more than 128 variables");
        }
        compile_all(text, 0);
        return std::move(error_);
    }

private:
    struct binary {
        std::string_view text;
        int precedence;
        operation code;
    };
    struct function {
        std::string_view name;
        operation code;
        bool needs_doubles;
    };

    // Longer spellings first.
    static constexpr std::array binaries{
        binary{"||", 2, operation::skip_or},       binary{"&&", 3, operation::skip_and},
        binary{"**", 12, operation::power},        binary{"<<", 9, operation::shift_left},
        binary{">>", 9, operation::shift_right},   binary{"<>", 7, operation::not_equal},
        binary{"!=", 7, operation::not_equal},     binary{"==", 7, operation::equal},
        binary{"<=", 8, operation::less_or_equal}, binary{">=", 8, operation::greater_or_equal},
        binary{"=", 7, operation::equal},          binary{"<", 8, operation::less},
        binary{">", 8, operation::greater},        binary{"|", 4, operation::bit_or},
        binary{"^", 5, operation::bit_xor},        binary{"&", 6, operation::bit_and},
        binary{"+", 10, operation::add},           binary{"-", 10, operation::subtract},
        binary{"*", 11, operation::multiply},      binary{"/", 11, operation::divide},
        binary{"%", 11, operation::remainder},
    };
    static constexpr int ternary_precedence = 1;

    static constexpr std::array functions{
        function{"SGN", operation::sign, false},
        function{"NEG", operation::negate, false},
        function{"ABS", operation::absolute, false},
        function{"TRUNC", operation::truncate, false},
        function{"FLOOR", operation::floor, false},
        function{"CEIL", operation::ceiling, false},
        function{"ROUND", operation::round, false},
        function{"SIN", operation::sine, true},
        function{"COS", operation::cosine, true},
        function{"TAN", operation::tangent, true},
        function{"ASIN", operation::arc_sine, true},
        function{"ACOS", operation::arc_cosine, true},
        function{"ATAN", operation::arc_tangent, true},
        function{"EXP", operation::exponential, true},
        function{"LN", operation::natural_logarithm, true},
        function{"LG", operation::decimal_logarithm, true},
        function{"SQRT", operation::square_root, true},
    };

    void fail(std::string reason) {
        if (error_.empty()) {
            error_ = std::move(reason);
        }
    }

    void skip_spaces() {
        while (!rest_.empty() && (rest_.front() == ' ' || (rest_.front() >= '\t' && rest_.front() <= '\r'))) {
            rest_.remove_prefix(1);
        }
    }

    bool take(std::string_view text) {
        skip_spaces();
        if (!rest_.starts_with(text)) {
            return false;
        }
        rest_.remove_prefix(text.size());
        return true;
    }

    void expect(std::string_view text) {
        if (!take(text)) {
            fail("\"" + std::string(text) + "\" is missing");
        }
    }

    /// \param operands change of the number of waiting operands
    std::size_t emit(formula::instruction const& one, int operands) {
        made_.program_.push_back(one);
        operands_ += operands;
        if (operands_ > max_operands || made_.program_.size() > max_instructions) {
            fail("it is too long or too deeply nested");
        }
        return made_.program_.size() - 1;
    }

    void set_target(std::size_t jump) {
        made_.program_[jump].operand = static_cast<std::uint32_t>(made_.program_.size());
    }

    /// Compiles a text from its beginning to its end.
    void compile_all(std::string_view text, int depth) {
        std::string_view const outer = std::exchange(rest_, text);
        parse(ternary_precedence, depth);
        skip_spaces();
        if (!rest_.empty()) {
            fail("\"" + std::string(rest_.substr(0, 20)) + "\" is not expected");
        }
        rest_ = outer;
    }

    std::optional<binary> peek_binary() {
        skip_spaces();
        auto const* const found =
            std::ranges::find_if(binaries, [this](binary const& one) { return rest_.starts_with(one.text); });
        return found != binaries.end() ? std::optional(*found) : std::nullopt;
    }

    void parse(int min_precedence, int depth) {
        if (depth > max_nesting) {
            return fail("it is too long or too deeply nested");
        }
        parse_unary(depth);
        while (error_.empty()) {
            auto const next = peek_binary();
            if (!next || next->precedence < min_precedence) {
                break;
            }
            rest_.remove_prefix(next->text.size());
            parse_right_side(*next, depth);
        }
        if (error_.empty() && min_precedence <= ternary_precedence && take("?")) {
            parse_ternary(depth);
        }
    }

    void parse_right_side(binary const& one, int depth) {
        bool const skips = one.code == operation::skip_and || one.code == operation::skip_or;
        std::size_t const jump = skips ? emit({one.code}, -1) : 0;
        bool const right_to_left = one.code == operation::power;
        parse(right_to_left ? one.precedence : one.precedence + 1, depth + 1);
        if (skips) {
            emit({operation::to_truth}, 0);
            set_target(jump);
        } else {
            emit({one.code}, -1);
        }
    }

    /// A chain of conditions is a loop, because chains of cameras are longer than the nesting that is allowed.
    void parse_ternary(int depth) {
        std::vector<std::size_t> to_end;
        do {
            std::size_t const to_else = emit({operation::jump_if_zero}, -1);
            parse(ternary_precedence, depth + 1);
            expect(":");
            to_end.push_back(emit({operation::jump}, -1));
            set_target(to_else);
            parse(ternary_precedence + 1, depth + 1);
        } while (error_.empty() && take("?"));
        for (std::size_t const jump : to_end) {
            set_target(jump);
        }
    }

    void parse_unary(int depth) {
        if (depth > max_nesting) {
            return fail("it is too long or too deeply nested");
        }
        if (take("+")) {
            return parse_unary(depth + 1);
        }
        if (take("~")) {
            parse_unary(depth + 1);
            emit({operation::complement}, 0);
            return;
        }
        if (take("-")) {
            skip_spaces();
            if (!rest_.empty() && is_digit(rest_.front())) {
                return parse_number(true);  // the lowest integer has no positive counterpart
            }
            parse_unary(depth + 1);
            emit({operation::negate}, 0);
            return;
        }
        parse_operand(depth);
    }

    void parse_operand(int depth) {
        if (take("(")) {
            parse(ternary_precedence, depth + 1);
            return expect(")");
        }
        skip_spaces();
        if (rest_.empty()) {
            return fail("an operand is missing at its end");
        }
        if (is_digit(rest_.front()) || rest_.front() == '.') {
            return parse_number(false);
        }
        if (!is_letter(rest_.front())) {
            return fail("\"" + std::string(rest_.substr(0, 20)) + "\" is not expected");
        }
        parse_name(depth);
    }

    void parse_number(bool negative) {
        char const* const begin = rest_.data();
        char const* const end = begin + rest_.size();
        formula::instruction made{operation::constant};
        if (rest_.starts_with("0x") || rest_.starts_with("0X")) {
            std::uint64_t bits = 0;
            auto const [stop, status] = std::from_chars(begin + 2, end, bits, 16);
            if (status != std::errc()) {
                return fail("a hexadecimal number is not valid");
            }
            bits = negative ? 0 - bits : bits;  // all 64 bits, as in masks
            made.integer = static_cast<std::int64_t>(bits);
            made.real = static_cast<double>(made.integer);
            rest_.remove_prefix(static_cast<std::size_t>(stop - begin));
        } else {
            auto const [stop, status] = std::from_chars(begin, end, made.real);
            if (status != std::errc()) {
                return fail("a number is not valid");
            }
            std::string const digits = (negative ? "-" : "") + std::string(begin, stop);
            auto const whole = std::from_chars(digits.data(), digits.data() + digits.size(), made.integer);
            made_.needs_doubles_ |= whole.ptr != digits.data() + digits.size() || whole.ec != std::errc();
            made.real = negative ? -made.real : made.real;
            rest_.remove_prefix(static_cast<std::size_t>(stop - begin));
        }
        if (!rest_.empty() && is_letter(rest_.front())) {
            return fail("a number is not valid");
        }
        emit(made, 1);
    }

    void parse_name(int depth) {
        std::size_t length = 0;
        while (length < rest_.size() && (is_letter(rest_[length]) || is_digit(rest_[length]) || rest_[length] == '.')) {
            ++length;
        }
        std::string_view const name = rest_.substr(0, length);
        rest_.remove_prefix(length);
        auto const variable = std::ranges::find(symbols_.variables, name);
        if (variable != symbols_.variables.end()) {
            auto const index = static_cast<std::uint32_t>(variable - symbols_.variables.begin());
            emit({operation::variable, index}, 1);
            return;
        }
        for (auto const& [known, text] : symbols_.expressions) {
            if (known == name && error_.empty()) {
                return compile_all(text, depth + 1);
            }
        }
        parse_function(name, depth);
    }

    void parse_function(std::string_view name, int depth) {
        std::string upper(name);
        std::ranges::transform(upper, upper.begin(), [](char one) {
            return one >= 'a' && one <= 'z' ? static_cast<char>(one - 'a' + 'A') : one;
        });
        if (upper == "PI" || upper == "E") {
            made_.needs_doubles_ = true;
            emit({operation::constant, 0, 0, upper == "E" ? std::numbers::e : std::numbers::pi}, 1);
            return;
        }
        auto const* const found = std::ranges::find(functions, upper, &function::name);
        if (found == functions.end()) {
            return fail("it uses \"" + std::string(name) + "\", which is not defined");
        }
        expect("(");
        parse(ternary_precedence, depth + 1);
        if (found->code == operation::round && take(",")) {
            parse(ternary_precedence, depth + 1);
            made_.needs_doubles_ = true;
            emit({operation::round_digits}, -1);
        } else {
            made_.needs_doubles_ |= found->needs_doubles;
            emit({found->code}, 0);
        }
        expect(")");
    }

    formula_symbols const& symbols_;
    formula& made_;
    std::string_view rest_;
    std::string error_;
    int operands_ = 0;
};

bool to_integer(double value, std::int64_t& whole) {
    constexpr double limit = 9223372036854775808.0;  // 2 to the power of 63
    if (!(value >= -limit && value < limit)) {
        return false;
    }
    whole = static_cast<std::int64_t>(value);
    return true;
}

formula formula::compile(std::string_view text, formula_symbols const& symbols, std::string& error) {
    formula made;
    error = formula_compiler(symbols, made).compile(text);
    if (!error.empty()) {
        made.program_.clear();
    }
    return made;
}

namespace {

constexpr char const* overflow = "the result is out of range";
constexpr char const* division_by_zero = "division by zero";
constexpr char const* shift_out_of_range = "a shift is not by 0 to 63 bits";
constexpr char const* not_a_number = "the result is not a number";

char const* power(std::int64_t base, std::int64_t exponent, std::int64_t& result) {
    if (exponent < 0) {
        if (base == 0) {
            return division_by_zero;
        }
        bool const is_unit = base == 1 || base == -1;
        result = !is_unit ? 0 : exponent % 2 == 0 ? 1 : base;
        return nullptr;
    }
    result = 1;
    while (exponent != 0) {
        if (exponent % 2 != 0 && __builtin_mul_overflow(result, base, &result)) {
            return overflow;
        }
        exponent /= 2;
        if (exponent != 0 && __builtin_mul_overflow(base, base, &base)) {
            return overflow;
        }
    }
    return nullptr;
}

}  // namespace

/// One evaluation.
template <class number>
class formula::machine {
public:
    machine(formula const& made, formula_variables& variables) : made_(made), variables_(variables) {}

    bool run(number& result, char const*& error) {
        error = made_.program_.empty() ? "it is not valid" : nullptr;
        for (std::size_t at = 0; error == nullptr && at < made_.program_.size();) {
            instruction const& one = made_.program_[at++];
            if (one.code == operation::variable) {
                if (!load(one.operand, error)) {
                    return false;
                }
                continue;
            }
            if (one.code <= operation::to_truth) {
                at = move(one, at);
                continue;
            }
            bool const has_two = (one.code >= operation::add && one.code <= operation::greater_or_equal) ||
                                 one.code == operation::round_digits;
            error = has_two ? operate(one.code) : apply(one.code, top());
        }
        result = error == nullptr ? stack_[0] : number{};
        return error == nullptr;
    }

private:
    static constexpr bool is_integer = std::is_same_v<number, std::int64_t>;

    void push(number value) { stack_[size_++] = value; }
    number& top() { return stack_[size_ - 1]; }

    bool load(std::uint32_t index, char const*& error) {
        if (!loaded_[index]) {
            if (!variables_.load(index, values_[index])) {
                return false;
            }
            loaded_[index] = true;
            if constexpr (!is_integer) {
                error = std::isfinite(values_[index]) ? nullptr : not_a_number;
            }
        }
        push(values_[index]);
        return error == nullptr;
    }

    /// Constants and jumps. \return the next instruction
    std::size_t move(instruction const& one, std::size_t next) {
        if (one.code == operation::constant) {
            push(is_integer ? static_cast<number>(one.integer) : static_cast<number>(one.real));
            return next;
        }
        if (one.code == operation::jump) {
            return one.operand;
        }
        bool const truth = top() != 0;
        if (one.code == operation::to_truth) {
            top() = truth ? 1 : 0;
            return next;
        }
        if (one.code != operation::jump_if_zero && truth == (one.code == operation::skip_or)) {
            top() = truth ? 1 : 0;
            return one.operand;
        }
        --size_;
        return one.code == operation::jump_if_zero && !truth ? one.operand : next;
    }

    /// Operators with two operands.
    char const* operate(operation code) {
        number const right = stack_[--size_];
        number& left = top();
        switch (code) {
            case operation::equal:
                left = left == right ? 1 : 0;
                return nullptr;
            case operation::not_equal:
                left = left != right ? 1 : 0;
                return nullptr;
            case operation::less:
                left = left < right ? 1 : 0;
                return nullptr;
            case operation::less_or_equal:
                left = left <= right ? 1 : 0;
                return nullptr;
            case operation::greater:
                left = left > right ? 1 : 0;
                return nullptr;
            case operation::greater_or_equal:
                left = left >= right ? 1 : 0;
                return nullptr;
            case operation::shift_left:
            case operation::shift_right:
            case operation::bit_and:
            case operation::bit_or:
            case operation::bit_xor:
                return combine_bits(code, left, right);
            default:
                return calculate(code, left, right);
        }
    }

    static char const* combine_bits(operation code, number& left, number right) {
        std::int64_t one = 0;
        std::int64_t other = 0;
        if constexpr (is_integer) {
            one = left;
            other = right;
        } else if (!to_integer(left, one) || !to_integer(right, other)) {
            return overflow;
        }
        bool const shifts = code == operation::shift_left || code == operation::shift_right;
        if (shifts && (other < 0 || other > 63)) {
            return shift_out_of_range;
        }
        std::int64_t const combined = code == operation::shift_left
                                          ? static_cast<std::int64_t>(static_cast<std::uint64_t>(one) << other)
                                      : code == operation::shift_right ? one >> other
                                      : code == operation::bit_and     ? one & other
                                      : code == operation::bit_or      ? one | other
                                                                       : one ^ other;
        left = static_cast<number>(combined);
        return nullptr;
    }

    static char const* calculate(operation code, std::int64_t& left, std::int64_t right) {
        switch (code) {
            case operation::add:
                return __builtin_add_overflow(left, right, &left) ? overflow : nullptr;
            case operation::subtract:
                return __builtin_sub_overflow(left, right, &left) ? overflow : nullptr;
            case operation::multiply:
                return __builtin_mul_overflow(left, right, &left) ? overflow : nullptr;
            case operation::power:
                return power(left, right, left);
            default:
                break;
        }
        if (right == 0) {
            return division_by_zero;
        }
        if (right == -1) {  // the only divisor whose quotient can overflow
            bool const divides = code == operation::divide;
            left = divides ? left : 0;
            return apply(operation::negate, left);
        }
        left = code == operation::divide ? left / right : left % right;
        return nullptr;
    }

    static char const* calculate(operation code, double& left, double right) {
        if (code == operation::round_digits) {
            return round_digits(left, right);
        }
        bool const divides = code == operation::divide || code == operation::remainder;
        if (divides && right == 0) {
            return division_by_zero;
        }
        left = code == operation::add        ? left + right
               : code == operation::subtract ? left - right
               : code == operation::multiply ? left * right
               : code == operation::divide   ? left / right
               : code == operation::power    ? std::pow(left, right)
                                             : std::fmod(left, right);
        return check(left);
    }

    static char const* check(double value) {
        return std::isnan(value) ? not_a_number : std::isinf(value) ? overflow : nullptr;
    }

    /// Operators and functions with one operand.
    static char const* apply(operation code, std::int64_t& value) {
        switch (code) {
            case operation::complement:
                value = ~value;
                return nullptr;
            case operation::sign:
                value = value > 0 ? 1 : value < 0 ? -1 : 0;
                return nullptr;
            case operation::absolute:
                return value < 0 ? apply(operation::negate, value) : nullptr;
            case operation::negate:
                return __builtin_sub_overflow(std::int64_t{0}, value, &value) ? overflow : nullptr;
            default:
                return nullptr;  // an integer is rounded already; the others need doubles
        }
    }

    static char const* apply(operation code, double& value) {
        switch (code) {
            case operation::complement:
                return combine_bits(operation::bit_xor, value, -1);
            case operation::negate:
                value = -value;
                return nullptr;
            case operation::sign:
                value = value > 0 ? 1 : value < 0 ? -1 : 0;
                return nullptr;
            case operation::absolute:
                value = std::fabs(value);
                return nullptr;
            case operation::truncate:
                value = std::trunc(value);
                return nullptr;
            case operation::floor:
                value = std::floor(value);
                return nullptr;
            case operation::ceiling:
                value = std::ceil(value);
                return nullptr;
            case operation::round:
                value = std::round(value);
                return nullptr;
            default:
                value = transcendental(code, value);
                return check(value);
        }
    }

    static double transcendental(operation code, double value) {
        switch (code) {
            case operation::sine:
                return std::sin(value);
            case operation::cosine:
                return std::cos(value);
            case operation::tangent:
                return std::tan(value);
            case operation::arc_sine:
                return std::asin(value);
            case operation::arc_cosine:
                return std::acos(value);
            case operation::arc_tangent:
                return std::atan(value);
            case operation::exponential:
                return std::exp(value);
            case operation::natural_logarithm:
                return std::log(value);
            case operation::decimal_logarithm:
                return std::log10(value);
            default:
                return std::sqrt(value);
        }
    }

    /// Rounds the left operand to as many decimals as the right one; a negative number rounds to tens, hundreds, ...
    static char const* round_digits(double& left, double right) {
        double const scale = std::pow(10.0, std::trunc(right));
        double const rounded = scale == 0.0 ? 0.0 : std::round(left * scale) / scale;  // 0: too small for a double
        char const* const error = check(rounded);
        left = error == nullptr ? rounded : left;
        return error;
    }

    formula const& made_;
    formula_variables& variables_;
    // Not initialised: read only where `size_` and `loaded_` allow it.
    std::array<number, max_operands + 1> stack_;
    std::array<number, max_variables> values_;
    std::bitset<max_variables> loaded_;
    std::size_t size_ = 0;
};

bool formula::evaluate(formula_variables& variables, std::int64_t& result, char const*& error) const {
    if (!needs_doubles_) {
        return machine<std::int64_t>(*this, variables).run(result, error);
    }
    double real = 0;
    if (!evaluate(variables, real, error)) {
        return false;
    }
    error = to_integer(real, result) ? nullptr : overflow;
    return error == nullptr;
}

bool formula::evaluate(formula_variables& variables, double& result, char const*& error) const {
    return machine<double>(*this, variables).run(result, error);
}

}  // namespace openpv
