// SPDX-License-Identifier: MIT
#include "features/camera_features.hpp"

#include <stdexcept>

namespace camsim {

namespace {

constexpr char const* category = "ChunkDataControl";

feature chunk_mode_active(camera_state& state) {
    return {.name = "ChunkModeActive",
            .category = category,
            .tooltip = "Appends the enabled chunks to the image",
            .visible_to = visibility::expert,
            .locked_while_acquiring = true,
            .kind = boolean_kind{.get = [&state] { return state.chunks.active; },
                                 .set =
                                     [&state](bool on) {
                                         state.chunks.active = on;
                                         return gvcp::status::success;
                                     }}};
}

feature chunk_selector(camera_state& state) {
    std::vector<enumeration_entry> entries;
    entries.reserve(chunk_kinds.size());
    for (chunk_kind const& kind : chunk_kinds) {
        entries.push_back({std::string(kind.name), static_cast<std::int64_t>(kind.which)});
    }
    return {.name = "ChunkSelector",
            .category = category,
            .tooltip = "Selects the chunk that ChunkEnable controls",
            .visible_to = visibility::expert,
            .selects = {"ChunkEnable"},
            .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.chunks.selected); },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.chunks.selected = static_cast<chunk>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = std::move(entries)}};
}

feature chunk_enable(camera_state& state) {
    auto const selected = [&state] { return static_cast<std::size_t>(state.chunks.selected); };
    return {.name = "ChunkEnable",
            .category = category,
            .tooltip = "Enables the selected chunk while ChunkModeActive is on",
            .visible_to = visibility::expert,
            .locked_while_acquiring = true,
            .invalidated_by = {"ChunkSelector"},
            .kind = boolean_kind{.get = [&state, selected] { return state.chunks.enabled.test(selected()); },
                                 .set =
                                     [&state, selected](bool on) {
                                         state.chunks.enabled.set(selected(), on);
                                         return gvcp::status::success;
                                     }}};
}

/// The value in a chunk. It is part of a block and not a register, so only receivers of the block can read it.
feature chunk_value(chunk_kind const& carried, std::string tooltip, std::string unit, decltype(feature::kind) kind) {
    return {.name = "Chunk" + std::string(carried.name),
            .category = category,
            .tooltip = std::move(tooltip),
            .unit = std::move(unit),
            .visible_to = visibility::expert,
            .access = access_mode::read_only,
            .cachable = false,
            .available_with = "ChunkModeActive",
            .kind = std::move(kind),
            .chunk_id = carried.id};
}

float_kind float_of(chunk_kind const& carried) {
    return {.get = {}, .set = {}, .minimum = 0.0, .maximum = 1e9, .bytes = carried.bytes};
}

integer_kind integer_of(chunk_kind const& carried) {
    std::int64_t const maximum = carried.bytes == 8 ? INT64_MAX : std::int64_t{0xFFFF'FFFF};
    return {.get = {}, .set = {}, .maximum = maximum, .bytes = carried.bytes};
}

feature value_of_chunk(chunk_kind const& carried) {
    switch (carried.which) {
        case chunk::gain_all:
            return chunk_value(carried, "Product of all gains of the frame, as a linear factor", "", float_of(carried));
        case chunk::exposure_time:
            return chunk_value(carried, "Exposure time of the frame", "us", float_of(carried));
        case chunk::timestamp:
            return chunk_value(carried, "Timestamp of the start of the exposure", "ticks", integer_of(carried));
        case chunk::exposure_start_counter:
            return chunk_value(carried, "Number of exposures since power-up", "", integer_of(carried));
    }
    throw std::logic_error("a chunk without a feature");
}

}  // namespace

std::vector<feature> chunk_features(camera_state& state) {
    std::vector<feature> features;
    features.push_back(chunk_mode_active(state));
    features.push_back(chunk_selector(state));
    features.push_back(chunk_enable(state));
    for (chunk_kind const& carried : chunk_kinds) {
        features.push_back(value_of_chunk(carried));
    }
    return features;
}

}  // namespace camsim
