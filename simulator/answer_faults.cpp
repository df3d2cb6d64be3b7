#include "answer_faults.hpp"

#include <algorithm>
#include <utility>

#include "byte_order.hpp"

namespace camsim {

namespace {

// Offsets in an acknowledge.
constexpr std::size_t number_at = 2;
constexpr std::size_t id_at = 6;

constexpr bool is_one_of(std::uint16_t acknowledge, std::initializer_list<gvcp::command> commands) {
    return std::ranges::any_of(commands, [=](gvcp::command one) {
        return acknowledge == gvcp::acknowledge_of(static_cast<std::uint16_t>(one));
    });
}

/// Calls `change(answer)` for each that is struck, and takes out those for which it returns false.
template <typename Strikes, typename Change>
bool strike_each(std::vector<gvcp_answer>& answers, Strikes strikes, Change change) {
    bool any = false;
    std::erase_if(answers, [&](gvcp_answer& answer) {
        bool const struck = strikes(answer);
        any = any || struck;
        return struck && !change(answer);
    });
    return any;
}

}  // namespace

/// \param answers to one command
std::vector<gvcp_answer> answer_faults::filter(std::vector<gvcp_answer> answers) {
    faults_.for_each([&](active_fault& one) { one.hits += apply(one, answers) ? 1U : 0U; });
    return answers;
}

bool answer_faults::concerns(active_fault const& one, gvcp_answer const& answer) {
    using enum gvcp::command;
    std::string const& to = one.what.word("to");
    std::uint16_t const number = load_be16(answer.datagram, number_at);
    return to == "all" || (to == "discovery" && is_one_of(number, {discovery})) ||
           (to == "reads" && is_one_of(number, {readreg, readmem})) ||
           (to == "writes" && is_one_of(number, {writereg, writemem, pending}));
}

/// \return whether it struck
bool answer_faults::apply(active_fault& one, std::vector<gvcp_answer>& answers) {
    auto const strikes = [&](gvcp_answer const& answer) {
        return concerns(one, answer) && faults_.next_lot_strikes(one);
    };
    std::vector<gvcp_answer> again;
    switch (one.what.kind) {
        case fault_kind::answer_delay: {
            auto const delay = std::chrono::milliseconds(static_cast<std::int64_t>(one.what.number("delay_ms")));
            return strike_each(
                answers, [&](gvcp_answer const& answer) { return concerns(one, answer); },
                [&](gvcp_answer& answer) {
                    answer.delay += delay;
                    return true;
                });
        }
        case fault_kind::answer_loss:
            return strike_each(answers, strikes, [](gvcp_answer&) { return false; });
        case fault_kind::answer_doubling:
            strike_each(answers, strikes, [&](gvcp_answer& answer) {
                again.push_back(answer);
                return true;
            });
            answers.insert(answers.end(), again.begin(), again.end());
            return !again.empty();
        case fault_kind::answer_error:
            // Who is told of an error is told of nothing else.
            return strike_each(answers, strikes, [&](gvcp_answer& answer) {
                std::uint16_t const number = load_be16(answer.datagram, number_at);
                std::uint16_t const id = load_be16(answer.datagram, id_at);
                answer.datagram = gvcp::encode_acknowledge(static_cast<gvcp::status>(one.what.number("status")),
                                                           static_cast<std::uint16_t>(number - 1U), id, {});
                return true;
            });
        case fault_kind::answer_wrong_id:
            return strike_each(answers, strikes, [](gvcp_answer& answer) {
                auto const id = static_cast<std::uint16_t>(load_be16(answer.datagram, id_at) ^ 0x5555U);
                store_be16(answer.datagram, id_at, id);
                return true;
            });
        default:
            return false;  // no fault of answers
    }
}

}  // namespace camsim
