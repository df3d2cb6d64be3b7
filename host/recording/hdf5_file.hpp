// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "recording/frame_writer_like.hpp"
#include "recording/hdf5_handle.hpp"
#include "recording/hdf5_storage.hpp"

namespace mediagrabber {

/// Texts about a recording that its HDF5 files hold.
struct recording_texts {
    std::string software;       ///< the writing program and its version
    std::string model;          ///< of the camera, empty if unknown
    std::string serial;         ///< number of the camera, empty if unknown
    std::string configuration;  ///< the whole configuration, as TOML
};

/// An HDF5 file in the layout of NeXus: `/entry/data` (NXdata) has the dataset `frames` with one chunk per frame, and
/// a dataset of one dimension for each field of the frame index.
///
/// Frames in a file have one size and one pixel format. The file is created with the first one. libhdf5 is in its SWMR
/// mode, so that readers may follow; hdf5_storage says why all other readers can open the file, too. Appending a frame
/// writes the frame, one element of each field and the changed metadata blocks, whatever the length.
class hdf5_file {
public:
    /// Creates the structure of the file, in memory.
    /// \param like  any frame of the size and format of this file
    /// \throws std::runtime_error
    hdf5_file(std::unique_ptr<hdf5_storage> storage, recording_texts const& texts, frame_record const& like);
    /// What has been written remains; nothing needs to be written.
    ~hdf5_file();
    hdf5_file(hdf5_file const&) = delete;
    hdf5_file& operator=(hdf5_file const&) = delete;

    /// \return whether a frame of this size and format can be appended
    bool takes(frame_record const& record) const;
    /// \param pixels  without padding
    written_frame append(frame_record const& record, std::span<std::byte const> pixels);
    /// Removes the last frame.
    void undo_last();

private:
    /// Data of one frame in `/entry/data`.
    struct field;
    static std::vector<field> const& fields();

    void create_groups(recording_texts const& texts, frame_record const& like);
    void create_frames(hid_t group);
    void create_fields(hid_t group);
    void resize(std::uint64_t frames);
    void write_field(hdf5_handle const& dataset, field const& one, frame_record const& record);
    void commit();

    std::unique_ptr<hdf5_storage> const storage_;
    hdf5_handle file_;
    hdf5_handle frames_;
    std::vector<hdf5_handle> field_datasets_;  ///< as in fields()
    hdf5_handle one_value_;                    ///< shape of one element in memory
    hdf5_handle place_;                        ///< the same element in all fields
    std::uint64_t count_ = 0;                  ///< frames
    // Of all frames:
    frame_format const* const format_;
    std::uint32_t const width_;   ///< pixels
    std::uint32_t const height_;  ///< pixels
};

/// `frames.h5`, and `frames-2.h5` and so on for the frames after each change of size or pixel format.
class hdf5_files final : public frame_writer_like {
public:
    /// \param directory  descriptor, must stay open as long as the object lives
    /// \throws std::system_error  with EEXIST if the file exists
    hdf5_files(int directory, recording_texts texts);

    written_frame write(frame_view const& frame) override;
    void undo_last() override;

    /// \return whether a file of a recording has this name
    static bool is_name(std::string const& name);

    static constexpr char file_name[] = "frames.h5";

private:
    std::unique_ptr<hdf5_storage> next_storage() const;

    int const directory_;
    recording_texts const texts_;
    std::uint64_t files_ = 0;                ///< that have frames
    std::unique_ptr<hdf5_storage> storage_;  ///< of the first file, until the first frame
    std::unique_ptr<hdf5_file> file_;
    std::vector<std::byte> buffer_;  ///< for frames with padding
};

}  // namespace mediagrabber
