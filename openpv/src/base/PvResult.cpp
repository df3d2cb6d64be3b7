// SPDX-License-Identifier: MIT
#include <PvResult.h>

#include <array>
#include <cstdint>

#include "base/printable_text.hpp"

namespace {

struct code_text {
    char const* name;
    char const* sentence;  ///< description of a result without a more precise one
};

/// Indexed by code.
constexpr std::array<code_text, 10> texts{{
    {"OK", ""},
    {"NOT_FOUND", "The requested item was not found."},
    {"NOT_CONNECTED", "The camera is not connected."},
    {"TIMEOUT", "The operation timed out."},
    {"ABORTED", "The operation was aborted."},
    {"INVALID_PARAMETER", "A value or an argument is not valid."},
    {"NOT_SUPPORTED", "The camera does not support the operation in its current state."},
    {"GENERIC_ERROR", "The operation failed."},
    {"MISSING_PACKETS", "Packets of the block are missing."},
    {"BUFFER_TOO_SMALL", "The block is larger than the attached memory."},
}};
static_assert(texts.size() == PvResult::Code::BUFFER_TOO_SMALL + 1);

char const* default_sentence(uint32_t code) {
    return code < texts.size() ? texts[code].sentence : "The operation failed with an unknown code.";
}

}  // namespace

PvResult::PvResult() : code_(Code::OK) {}
PvResult::PvResult(uint32_t code) : code_(code), description_(default_sentence(code)) {}

/// Descriptions may quote the camera, so they are made printable here.
PvResult::PvResult(uint32_t code, PvString const& description)
    : code_(code), description_(openpv::printable(description.GetAscii()).c_str()) {}

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
