// SPDX-License-Identifier: MIT
#include "recording/hdf5_file.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <cstring>
#include <exception>
#include <limits>
#include <regex>
#include <span>
#include <string_view>
#include <utility>

#include "base/host_log.hpp"
#include "frames/frame_pixels.hpp"

namespace mediagrabber {

namespace {

/// Elements of a field that are stored together. A multiple keeps the index of these chunks in small blocks, see
/// max_frames.
constexpr hsize_t field_chunk = 4096;
/// Of one file. With more, blocks of the fields' chunk index would cross memory pages, so a process that is killed
/// could leave a torn one; further frames go to another file.
constexpr std::uint64_t max_frames = field_chunk * 2000;

constexpr std::uint64_t no_integer = std::numeric_limits<std::uint64_t>::max();
constexpr float no_number = std::numeric_limits<float>::quiet_NaN();

hdf5_handle text_type(std::size_t bytes) {
    hdf5_handle type(H5Tcopy(H5T_C_S1), "create a text type");
    hdf5_checked(H5Tset_size(type.get(), std::max<std::size_t>(bytes, 1)), "create a text type");
    hdf5_checked(H5Tset_cset(type.get(), H5T_CSET_UTF8), "create a text type");
    hdf5_checked(H5Tset_strpad(type.get(), H5T_STR_NULLPAD), "create a text type");
    return type;
}

hdf5_handle scalar() {
    return {H5Screate(H5S_SCALAR), "create a data space"};
}

void add_attribute(hid_t object, char const* name, hid_t type, hid_t space, void const* value) {
    hdf5_handle const attribute(H5Acreate2(object, name, type, space, H5P_DEFAULT, H5P_DEFAULT), "create an attribute");
    hdf5_checked(H5Awrite(attribute.get(), type, value), "write an attribute");
}

/// Texts have a fixed length: those of variable length are stored in blocks that cannot be written in transactions.
void add_attribute(hid_t object, char const* name, std::string const& text) {
    add_attribute(object, name, text_type(text.size()).get(), scalar().get(), text.c_str());
}

void add_attribute(hid_t object, char const* name, std::uint32_t value) {
    add_attribute(object, name, H5T_NATIVE_UINT32, scalar().get(), &value);
}

void add_axes(hid_t group, std::vector<std::string_view> const& axes) {
    std::size_t longest = 0;
    for (auto const axis : axes) {
        longest = std::max(longest, axis.size());
    }
    std::string texts;
    for (auto const axis : axes) {
        texts += axis;
        texts.append(longest - axis.size(), '\0');
    }
    hsize_t const count = axes.size();
    hdf5_handle const space(H5Screate_simple(1, &count, nullptr), "create a data space");
    add_attribute(group, "axes", text_type(longest).get(), space.get(), texts.c_str());
}

/// \param kind  class of NeXus
hdf5_handle make_group(hid_t parent, char const* name, char const* kind) {
    hdf5_handle group(H5Gcreate2(parent, name, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), "create a group");
    add_attribute(group.get(), "NX_class", kind);
    return group;
}

void add_text(hid_t group, char const* name, std::string const& text) {
    auto const type = text_type(text.size());
    hdf5_handle const dataset(
        H5Dcreate2(group, name, type.get(), scalar().get(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), "create a text");
    hdf5_checked(H5Dwrite(dataset.get(), type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, text.c_str()), "write a text");
}

/// \return properties of a dataset with these chunks, whose elements exist only when they are written
hdf5_handle chunked(std::span<hsize_t const> chunk) {
    hdf5_handle made(H5Pcreate(H5P_DATASET_CREATE), "create a property list");
    hdf5_checked(H5Pset_chunk(made.get(), static_cast<int>(chunk.size()), chunk.data()), "set the size of chunks");
    hdf5_checked(H5Pset_fill_time(made.get(), H5D_FILL_TIME_NEVER), "set the fill time");
    hdf5_checked(H5Pset_obj_track_times(made.get(), false), "set the times");
    return made;
}

std::string iso_time(std::uint64_t timestamp_us) {
    std::chrono::sys_time<std::chrono::seconds> const seconds{std::chrono::seconds(timestamp_us / 1'000'000)};
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", seconds, timestamp_us % 1'000'000);
}

}  // namespace

struct hdf5_file::field {
    enum class type : std::uint8_t { integer, number, text };
    /// Large enough for each type; texts are padded with zeros.
    using value = std::array<std::byte, 16>;

    char const* name;
    type kind;
    char const* units;  ///< empty if it has none
    char const* meaning;
    value (*of)(frame_record const& record);

    template <typename content>
    static value packed(content const& from) {
        value made{};
        static_assert(sizeof from <= sizeof made);
        std::memcpy(made.data(), &from, sizeof from);
        return made;
    }
    static value integer(std::optional<std::uint64_t> of) { return packed(of.value_or(no_integer)); }
    static value number(std::optional<float> of) { return packed(of.value_or(no_number)); }
    static value text(std::string_view of) {
        std::array<char, sizeof(value)> made{};
        std::ranges::copy(of.substr(0, made.size()), made.begin());
        return packed(made);
    }

    hdf5_handle stored_type() const {
        switch (kind) {
            case type::integer:
                return {H5Tcopy(H5T_STD_U64LE), "create a type"};
            case type::number:
                return {H5Tcopy(H5T_IEEE_F32LE), "create a type"};
            case type::text:
                break;
        }
        return text_type(sizeof(value));
    }
};

/// In the order of the frame index, without the place of the frame in the file, which is its number here.
std::vector<hdf5_file::field> const& hdf5_file::fields() {
    using record = frame_record const&;
    using enum field::type;
    static std::vector<field> const all{
        {"frame", integer, "", "frame number in the recording, from 1",
         [](record of) { return field::integer(of.number); }},
        {"timestamp_us", integer, "us", "timestamp, since 1970-01-01 UTC",
         [](record of) { return field::integer(of.timestamp_us); }},
        {"handed_over_us", integer, "us", "time at which the plug-in handed the frame over, since 1970-01-01 UTC",
         [](record of) { return field::integer(of.handed_over_us); }},
        {"announced_us", integer, "us", "timestamp that was announced before the frame arrived, since 1970-01-01 UTC",
         [](record of) { return field::integer(of.announced_us); }},
        {"ticks", integer, "", "camera timestamp, in ticks of the camera clock",
         [](record of) { return field::integer(of.ticks); }},
        {"time_us", integer, "us", "estimated beginning of the exposure, since 1970-01-01 UTC",
         [](record of) { return field::integer(of.exposed ? std::optional(of.exposed->time_us) : std::nullopt); }},
        {"time_uncertainty_us", number, "us", "of time_us; about a constant delay if time_source is arrivals",
         [](record of) {
             return field::number(of.exposed ? std::optional(static_cast<float>(of.exposed->uncertainty_us))
                                             : std::nullopt);
         }},
        {"time_source", text, "", "arrivals, reference or ptp",
         [](record of) { return field::text(of.exposed ? name_of(of.exposed->source) : ""); }},
        {"clock_drift_ppm", number, "ppm", "how much faster the camera clock runs than that of the recorder",
         [](record of) { return field::number(of.exposed ? of.exposed->clock_drift_ppm : std::nullopt); }},
        {"gain_db", number, "dB", "gain", [](record of) { return field::number(of.gain_db); }},
        {"exposure_us", number, "us", "exposure time", [](record of) { return field::number(of.exposure_us); }},
        {"counter", integer, "", "exposure start counter of the camera",
         [](record of) { return field::integer(of.counter); }},
        {"width", integer, "pixel", "width of the frame", [](record of) { return field::integer(of.width); }},
        {"height", integer, "pixel", "height of the frame", [](record of) { return field::integer(of.height); }},
        {"stride", integer, "byte", "from line to line in the memory of the recorder",
         [](record of) { return field::integer(of.stride); }},
        {"pixel_format", text, "", "pixel format, as GenICam names it",
         [](record of) { return field::text(of.format->name); }},
        {"significant_bits", integer, "bit", "of a pixel",
         [](record of) { return field::integer(of.format->significant_bits); }},
        {"temperature_c", number, "degC", "camera temperature",
         [](record of) { return field::number(of.temperature_c); }},
    };
    return all;
}

hdf5_file::hdf5_file(std::unique_ptr<hdf5_storage> storage, recording_texts const& texts, frame_record const& like)
    : storage_(std::move(storage)), format_(like.format), width_(like.width), height_(like.height) {
    silence_hdf5_errors();
    hdf5_handle const access(H5Pcreate(H5P_FILE_ACCESS), "create a property list");
    storage_->select_for(access.get());
    // The version of the format whose readers know SWMR, but nothing newer.
    hdf5_checked(H5Pset_libver_bounds(access.get(), H5F_LIBVER_V110, H5F_LIBVER_V110), "set the version");
    hdf5_checked(H5Pset_alignment(access.get(), 1, hdf5_storage::block_alignment), "set the alignment");
    // Without a cache, a field's element is written by itself rather than with its chunk.
    hdf5_checked(H5Pset_cache(access.get(), 0, 0, 0, 0.0), "set the size of the cache");
    hdf5_checked(H5Pset_meta_block_size(access.get(), 0), "set the block size");
    file_ = {H5Fcreate(storage_->name().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access.get()), "create a file"};
    create_groups(texts, like);
    hsize_t const one = 1;
    hsize_t const unlimited = H5S_UNLIMITED;
    hsize_t const none = 0;
    one_value_ = {H5Screate_simple(1, &one, nullptr), "create a data space"};
    place_ = {H5Screate_simple(1, &none, &unlimited), "create a data space"};
    hdf5_checked(H5Fstart_swmr_write(file_.get()), "begin SWMR mode");
}

hdf5_file::~hdf5_file() {
    try {
        if (storage_->has_changes()) {
            storage_->commit();
        }
    } catch (std::exception const& error) {
        log_error(std::string("the last frame may not be readable: ") + error.what());
    }
    storage_->freeze();
}

void hdf5_file::create_groups(recording_texts const& texts, frame_record const& like) {
    hid_t const root = file_.get();
    add_attribute(root, "NX_class", "NXroot");
    add_attribute(root, "default", "entry");
    add_attribute(root, "creator", texts.software);
    auto const entry = make_group(root, "entry", "NXentry");
    add_attribute(entry.get(), "default", "data");
    add_text(entry.get(), "program_name", texts.software);
    add_text(entry.get(), "start_time", iso_time(like.timestamp_us));
    auto const configuration = make_group(entry.get(), "configuration", "NXnote");
    add_text(configuration.get(), "type", "application/toml");
    add_text(configuration.get(), "data", texts.configuration);
    auto const instrument = make_group(entry.get(), "instrument", "NXinstrument");
    auto const detector = make_group(instrument.get(), "detector", "NXdetector");
    add_text(detector.get(), "model", texts.model);
    add_text(detector.get(), "serial_number", texts.serial);
    auto const data = make_group(entry.get(), "data", "NXdata");
    create_frames(data.get());
    create_fields(data.get());
}

/// Two dimensions are declared as unlimited, though only the first one grows: then libhdf5 finds the chunks by a
/// B-tree, whose nodes are smaller than a memory page and are replaced by changed copies. The index for one unlimited
/// dimension overwrites blocks of up to two pages.
void hdf5_file::create_frames(hid_t group) {
    bool const is_packed = format_->container_bits % 8 != 0;
    std::size_t const line_bytes = format_->line_bytes(width_);
    std::vector<hsize_t> shape{1, height_, width_};
    if (is_packed) {
        shape = {1, height_ * line_bytes};
    }
    auto limit = shape;
    limit[0] = limit[1] = H5S_UNLIMITED;
    auto const properties = chunked(shape);
    shape[0] = 0;
    hdf5_handle const space(H5Screate_simple(static_cast<int>(shape.size()), shape.data(), limit.data()),
                            "create a data space");
    hid_t const type = format_->container_bits == 16 ? H5T_STD_U16LE : H5T_STD_U8LE;
    frames_ = {H5Dcreate2(group, "frames", type, space.get(), H5P_DEFAULT, properties.get(), H5P_DEFAULT),
               "create the frames"};
    hid_t const frames = frames_.get();
    add_attribute(frames, "long_name", "frames");
    add_attribute(frames, "pixel_format", std::string(format_->name));
    add_attribute(frames, "significant_bits", format_->significant_bits);
    if (is_packed) {
        add_attribute(frames, "width", width_);
        add_attribute(frames, "height", height_);
        add_attribute(frames, "line_bytes", static_cast<std::uint32_t>(line_bytes));
    } else {
        add_attribute(frames, "interpretation", "image");
    }
    if (format_->cfa == colour_filter::bayer_rg) {
        add_attribute(frames, "colour_filter_array", "red green / green blue");
    }
    storage_->watch_data_of(height_ * line_bytes);
    add_attribute(group, "signal", "frames");
    add_axes(group, is_packed ? std::vector<std::string_view>{"timestamp_us", "."}
                              : std::vector<std::string_view>{"timestamp_us", ".", "."});
}

void hdf5_file::create_fields(hid_t group) {
    hsize_t const none = 0;
    hsize_t const unlimited = H5S_UNLIMITED;
    hdf5_handle const space(H5Screate_simple(1, &none, &unlimited), "create a data space");
    for (field const& one : fields()) {
        auto const type = one.stored_type();
        auto const properties = chunked(std::span(&field_chunk, 1));
        bool const may_be_absent = one.kind == field::type::integer;
        if (may_be_absent) {
            hdf5_checked(H5Pset_fill_value(properties.get(), H5T_NATIVE_UINT64, &no_integer), "set the fill value");
        }
        hdf5_handle made(
            H5Dcreate2(group, one.name, type.get(), space.get(), H5P_DEFAULT, properties.get(), H5P_DEFAULT),
            "create a field of the frame index");
        add_attribute(made.get(), "units", one.units);
        add_attribute(made.get(), "long_name", one.meaning);
        if (may_be_absent) {
            add_attribute(made.get(), "_FillValue", H5T_NATIVE_UINT64, scalar().get(), &no_integer);
        }
        add_attribute(group, (std::string(one.name) + "_indices").c_str(), 0U);
        field_datasets_.push_back(std::move(made));
    }
}

bool hdf5_file::takes(frame_record const& record) const {
    return record.format == format_ && record.width == width_ && record.height == height_ && count_ < max_frames;
}

written_frame hdf5_file::append(frame_record const& record, std::span<std::byte const> pixels) {
    silence_hdf5_errors();
    if (storage_->has_changes() && storage_->size() != 0) {
        storage_->commit();  // what remained of a frame that failed, and is replaced now
    }
    std::uint64_t const before = storage_->size();
    resize(count_ + 1);
    std::array<hsize_t, 3> const offset{count_, 0, 0};
    hdf5_checked(H5Dwrite_chunk(frames_.get(), H5P_DEFAULT, 0, offset.data(), pixels.size(), pixels.data()),
                 "write a frame");
    storage_->throw_data_error();
    for (std::size_t i = 0; i < fields().size(); ++i) {
        write_field(field_datasets_[i], fields()[i], record);
    }
    commit();
    ++count_;
    return {.place = {.file = storage_->name(),
                      .page = count_ - 1,
                      .offset = storage_->last_data_address(),
                      .bytes = pixels.size()},
            .bytes = storage_->size() - before};
}

void hdf5_file::resize(std::uint64_t frames) {
    std::size_t const line_bytes = format_->line_bytes(width_);
    bool const is_packed = format_->container_bits % 8 != 0;
    std::array<hsize_t, 3> const size{frames, is_packed ? height_ * line_bytes : height_, width_};
    hdf5_checked(H5Dset_extent(frames_.get(), size.data()), "change the number of frames");
    for (auto const& dataset : field_datasets_) {
        hdf5_checked(H5Dset_extent(dataset.get(), size.data()), "change the number of frames");
    }
    hsize_t const first = frames == 0 ? 0 : frames - 1;
    hsize_t const one = 1;
    hsize_t const unlimited = H5S_UNLIMITED;
    hdf5_checked(H5Sset_extent_simple(place_.get(), 1, size.data(), &unlimited), "change a data space");
    if (frames != 0) {
        hdf5_checked(H5Sselect_hyperslab(place_.get(), H5S_SELECT_SET, &first, nullptr, &one, nullptr),
                     "select the last frame");
    }
}

void hdf5_file::write_field(hdf5_handle const& dataset, field const& one, frame_record const& record) {
    static hdf5_handle const text = text_type(sizeof(field::value));
    auto const value = one.of(record);
    hid_t const type = one.kind == field::type::integer  ? H5T_NATIVE_UINT64
                       : one.kind == field::type::number ? H5T_NATIVE_FLOAT
                                                         : text.get();
    hdf5_checked(H5Dwrite(dataset.get(), type, one_value_.get(), place_.get(), H5P_DEFAULT, value.data()),
                 "write a field of the frame index");
}

void hdf5_file::commit() {
    hdf5_checked(H5Fflush(file_.get(), H5F_SCOPE_LOCAL), "write the metadata");
    storage_->commit();
}

void hdf5_file::undo_last() {
    silence_hdf5_errors();
    resize(--count_);
    commit();
}

hdf5_files::hdf5_files(int directory, recording_texts texts)
    : directory_(directory), texts_(std::move(texts)), storage_(next_storage()) {}

std::unique_ptr<hdf5_storage> hdf5_files::next_storage() const {
    return std::make_unique<hdf5_storage>(
        directory_, files_ == 0 ? std::string(file_name) : fmt::format("frames-{}.h5", files_ + 1));
}

written_frame hdf5_files::write(frame_view const& frame) {
    if (file_ == nullptr || !file_->takes(frame.record)) {
        if (storage_ == nullptr) {
            storage_ = next_storage();
        }
        file_ = std::make_unique<hdf5_file>(std::move(storage_), texts_, frame.record);
        ++files_;
    }
    return file_->append(frame.record, without_padding(frame, buffer_));
}

void hdf5_files::undo_last() {
    file_->undo_last();
}

bool hdf5_files::is_name(std::string const& name) {
    static std::regex const pattern(R"(frames(-[0-9]+)?\.h5)");
    return std::regex_match(name, pattern);
}

}  // namespace mediagrabber
