// SPDX-License-Identifier: MIT
#include "genicam/register_window.hpp"

#include <algorithm>

#include "genicam/node_loader.hpp"

namespace openpv {
namespace {

/// Far above the length of any register of a camera.
constexpr std::int64_t max_register_bytes = 1 << 20;

bool is_valid_length(std::int64_t bytes) {
    return bytes > 0 && bytes <= max_register_bytes;
}

std::uint32_t code_of(register_result const& result) {
    // GVCP status codes of acknowledges.
    constexpr std::uint16_t not_implemented = 0x8001;
    constexpr std::uint16_t invalid_parameter = 0x8002;
    constexpr std::uint16_t invalid_address = 0x8003;
    constexpr std::uint16_t write_protect = 0x8004;
    constexpr std::uint16_t access_denied = 0x8006;
    switch (result.outcome) {
        case register_outcome::success:
            return PvResult::Code::OK;
        case register_outcome::timeout:
            return PvResult::Code::TIMEOUT;
        case register_outcome::unreachable:
        case register_outcome::closed:
            return PvResult::Code::NOT_CONNECTED;
        case register_outcome::invalid:
            return PvResult::Code::GENERIC_ERROR;
        case register_outcome::refused:
            break;
    }
    switch (result.status) {
        case invalid_parameter:
            return PvResult::Code::INVALID_PARAMETER;
        case not_implemented:
        case invalid_address:
        case write_protect:
        case access_denied:
            return PvResult::Code::NOT_SUPPORTED;
        default:
            return PvResult::Code::GENERIC_ERROR;
    }
}

bool add_product(std::int64_t& sum, std::int64_t factor, std::int64_t other) {
    std::int64_t product = 0;
    return !__builtin_mul_overflow(factor, other, &product) && !__builtin_add_overflow(sum, product, &sum);
}

}  // namespace

bool fail_access(evaluation& state, register_result const& result) {
    return state.fail(code_of(result), result.description);
}

void register_window::link(pugi::xml_node element, node_loader& loader) {
    name_ = element.attribute(element.attribute("Name") ? "Name" : "Comment").value();
    camera_ = &loader.camera();
    for (pugi::xml_node const part : element.children()) {
        std::string_view const tag = part.name();
        if (tag == "Address") {
            addresses_.emplace_back().set(parse_integer(text_of(part)).value_or(0));
        } else if (tag == "pAddress") {
            addresses_.emplace_back().set(loader.resolve(text_of(part)));
        } else if (tag == "IntSwissKnife") {
            addresses_.emplace_back().set(loader.add_formula(part));
        } else if (tag == "pIndex") {
            index& made = indexes_.emplace_back();
            made.source = loader.resolve(text_of(part));
            made.has_offset = part.attribute("Offset") || part.attribute("pOffset");
            made.offset.set(parse_integer(part.attribute("Offset").value()).value_or(0));
            if (pugi::xml_attribute const linked = part.attribute("pOffset")) {
                made.offset.set(loader.resolve(linked.value()));
            }
        }
    }
    constexpr std::int64_t default_length = 4;
    length_.set(default_length);
    loader.link_number(element, "Length", "pLength", length_);
    evaluation state;
    std::int64_t length = 0;
    if (length_.source() == nullptr && length_.read(state, length) && !is_valid_length(length)) {
        loader.mark_unusable();
    }
    auto const* const port = loader.find_port(text_of(element.child("pPort")));
    unusable_port_ = port == nullptr          ? "its register is in a port that the camera's GenICam XML does not have"
                     : port->child("ChunkID") ? "its value is part of a chunk, not a register"
                                              : nullptr;
    big_endian_ = text_of(element.child("Endianess")) == "BigEndian";
    access_ = parse_node_access(text_of(element.child("AccessMode"))).value_or(node_access::read_only);
    std::string_view const cachable = text_of(element.child("Cachable"));
    caching_ = cachable.empty() || cachable == "WriteThrough" ? caching::write_through
               : cachable == "WriteAround"                    ? caching::write_around
                                                              : caching::none;
    constexpr std::int64_t max_ms = 86'400'000;  // a day: longer is never
    polling_time_ = std::chrono::milliseconds(
        std::clamp<std::int64_t>(parse_integer(text_of(element.child("PollingTime"))).value_or(0), 0, max_ms));
}

bool register_window::get_length(evaluation& state, std::size_t& bytes) const {
    std::int64_t length = 0;
    if (!length_.read(state, length)) {
        return false;
    }
    if (!is_valid_length(length)) {
        return state.fail(PvResult::Code::NOT_FOUND,
                          "the camera does not have this feature now: the length of its register is " +
                              std::to_string(length) + " bytes");
    }
    bytes = static_cast<std::size_t>(length);
    return true;
}

bool register_window::get_address(evaluation& state, std::size_t length, std::int64_t& address) const {
    std::int64_t sum = 0;
    bool valid = true;
    for (auto const& part : addresses_) {
        std::int64_t value = 0;
        if (!part.read(state, value)) {
            return false;
        }
        valid = valid && add_product(sum, value, 1);
    }
    for (index const& one : indexes_) {
        std::int64_t value = 0;
        auto stride = static_cast<std::int64_t>(length);
        if (!one.source->read(state, value) || (one.has_offset && !one.offset.read(state, stride))) {
            return false;
        }
        valid = valid && add_product(sum, value, stride);
    }
    if (!valid || sum < 0) {
        return state.fail(PvResult::Code::GENERIC_ERROR, "the address of its register is not valid");
    }
    address = sum;
    return true;
}

register_result register_window::read_port(std::int64_t address, std::span<std::byte> into) {
    auto const at = static_cast<std::uint64_t>(address);
    if (!camera_->uses_register_access || into.size() != 4) {
        return camera_->port.read(at, into);
    }
    std::uint32_t value = 0;
    register_result result = camera_->port.read_register(at, value);
    for (std::size_t i = 0; i < 4; ++i) {
        into[i] = static_cast<std::byte>(value >> (24 - 8 * i));
    }
    return result;
}

register_result register_window::write_port(std::int64_t address, std::span<std::byte const> from) {
    auto const at = static_cast<std::uint64_t>(address);
    if (!camera_->uses_register_access || from.size() != 4) {
        return camera_->port.write(at, from);
    }
    std::uint32_t value = 0;
    for (std::byte const each : from) {
        value = value << 8 | std::to_integer<std::uint32_t>(each);
    }
    return camera_->port.write_register(at, value);
}

bool register_window::take_cached(std::int64_t address, std::span<std::byte> into, std::uint64_t& generation) {
    std::lock_guard const lock(mutex_);
    generation = generation_;
    bool const usable = valid_ && cached_address_ == address && cached_.size() == into.size() &&
                        (polling_time_.count() == 0 || std::chrono::steady_clock::now() - cached_at_ < polling_time_);
    if (usable) {
        std::ranges::copy(cached_, into.begin());
    }
    return usable;
}

/// Call it with the mutex locked.
void register_window::store(std::int64_t address, std::span<std::byte const> content) {
    cached_.assign(content.begin(), content.end());  // allocates once, unless the length changes
    cached_address_ = address;
    valid_ = true;
    if (polling_time_.count() != 0) {
        cached_at_ = std::chrono::steady_clock::now();
    }
}

bool register_window::read(evaluation& state, std::span<std::byte> into) {
    if (unusable_port_ != nullptr) {
        return state.fail(PvResult::Code::NOT_SUPPORTED, unusable_port_);
    }
    std::int64_t address = 0;
    if (!get_address(state, into.size(), address)) {
        return false;
    }
    bool const caches = caching_ != caching::none && !state.uncached;
    std::uint64_t generation = 0;
    if (caches && take_cached(address, into, generation)) {
        return true;
    }
    register_result const result = read_port(address, into);
    if (!result.ok()) {
        return fail_access(state, result);
    }
    if (caches) {
        std::lock_guard const lock(mutex_);
        if (generation == generation_) {
            store(address, into);
        }
    }
    return true;
}

bool register_window::write(evaluation& state, std::span<std::byte const> from) {
    if (unusable_port_ != nullptr) {
        return state.fail(PvResult::Code::NOT_SUPPORTED, unusable_port_);
    }
    std::int64_t address = 0;
    if (!get_address(state, from.size(), address)) {
        return false;
    }
    register_result const result = write_port(address, from);
    std::lock_guard const lock(mutex_);
    ++generation_;
    valid_ = false;
    if (result.ok() && caching_ == caching::write_through) {
        store(address, from);
    }
    return result.ok() || fail_access(state, result);
}

void register_window::invalidate() {
    std::lock_guard const lock(mutex_);
    ++generation_;
    valid_ = false;
}

}  // namespace openpv
