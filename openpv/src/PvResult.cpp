#include <PvResult.h>

#include <array>
#include <cstdint>

namespace {

struct code_text {
    char const* name;
    char const* sentence;  ///< what a result says when nothing more exact is known
};

/// Indexed by code.
constexpr std::array<code_text, 10> texts{{
    {"OK", ""},
    {"NOT_FOUND", "No such thing was found."},
    {"NOT_CONNECTED", "The camera is not connected."},
    {"TIMEOUT", "The operation did not end in time."},
    {"ABORTED", "The operation was aborted."},
    {"INVALID_PARAMETER", "A value or an argument was refused."},
    {"NOT_SUPPORTED", "The operation is not possible with this camera or in its present state."},
    {"GENERIC_ERROR", "The operation failed."},
    {"MISSING_PACKETS", "Packets of the block are missing."},
    {"BUFFER_TOO_SMALL", "The block is larger than the attached memory."},
}};
static_assert(texts.size() == PvResult::Code::BUFFER_TOO_SMALL + 1);

char const* default_sentence(uint32_t code) {
    return code < texts.size() ? texts[code].sentence : "The operation ended with a code that has no name.";
}

}  // namespace

PvResult::PvResult() : code_(Code::OK) {}
PvResult::PvResult(uint32_t code) : code_(code), description_(default_sentence(code)) {}
PvResult::PvResult(uint32_t code, PvString const& description) : code_(code), description_(description) {}
PvResult::PvResult(PvResult const& other) = default;
PvResult& PvResult::operator=(PvResult const& other) = default;
PvResult::~PvResult() = default;

bool PvResult::IsOK() const {
    return code_ == Code::OK;
}
uint32_t PvResult::GetCode() const {
    return code_;
}
PvString PvResult::GetCodeString() const {
    return code_ < texts.size() ? texts[code_].name : "UNKNOWN";
}
PvString PvResult::GetDescription() const {
    return description_;
}
