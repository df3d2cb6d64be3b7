// SPDX-License-Identifier: MIT
#include "recording/recording.hpp"

#include <fcntl.h>

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/host_log.hpp"
#include "recording/bigtiff_file.hpp"
#include "recording/hdf5_file.hpp"
#include "recording/raw_file.hpp"
#include "recording/tiff_files.hpp"

namespace mediagrabber {

namespace {

file_handle open_directory(std::filesystem::path const& path) {
    file_handle opened(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened) {
        throw std::runtime_error(path.string() + ": " + std::generic_category().message(errno));
    }
    return opened;
}

/// \return null if only the frame index is written
std::unique_ptr<frame_writer_like> writer_for(int directory, recording_format const& format) {
    tiff_file tiff(format.compression, format.software, format.model);
    switch (format.kind) {
        case output_format::tiff:
            return std::make_unique<tiff_files>(directory, std::move(tiff));
        case output_format::bigtiff:
            return std::make_unique<bigtiff_file>(directory, std::move(tiff));
        case output_format::raw:
            return std::make_unique<raw_file>(directory);
        case output_format::hdf5:
            return std::make_unique<hdf5_files>(directory, recording_texts{.software = format.software,
                                                                           .model = format.model,
                                                                           .serial = format.serial,
                                                                           .configuration = format.configuration});
        case output_format::none:
            break;
    }
    return nullptr;
}

/// \return the file name that the error is about: the text before the first colon of its message
std::string name_in(std::system_error const& error) {
    std::string const text = error.what();
    return text.substr(0, text.find(':'));
}

}  // namespace

recording::made_directory::made_directory(std::filesystem::path const& path) : path_(path) {
    std::error_code error;
    remove_ = std::filesystem::create_directories(path, error);
    if (error) {
        throw std::runtime_error(path.string() + ": cannot create the directory: " + error.message());
    }
}

/// Removes only an empty directory.
recording::made_directory::~made_directory() {
    if (remove_) {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
}

/// The writer is constructed before the index: if an index exists, the writer's destructor removes its new file.
recording::recording(std::filesystem::path directory, recording_format const& format) try
    : path_(std::move(directory)),
      made_(path_),
      directory_(open_directory(path_)),
      writer_(writer_for(directory_.get(), format)),
      index_(directory_.get()) {
} catch (std::system_error const& error) {
    if (error.code() == std::errc::file_exists) {
        throw std::runtime_error("the output directory already contains a recording (" + name_in(error) +
                                 "); choose another directory");
    }
    throw std::runtime_error(std::string("cannot write to the output directory: ") + error.what());
}

std::size_t recording::write(frame_view const& frame) {
    auto const written = writer_ == nullptr ? written_frame() : writer_->write(frame);
    try {
        std::string const line = index_line(frame.record, written.place);
        index_.append(line);
        made_.keep();
        return written.bytes + line.size();
    } catch (...) {
        std::exception_ptr const reason = std::current_exception();
        try {
            if (writer_ != nullptr) {
                writer_->undo_last();
            }
        } catch (std::exception const& error) {
            log_error(std::string("a frame without a line in frames.jsonl stays in its file: ") + error.what());
        }
        std::rethrow_exception(reason);
    }
}

}  // namespace mediagrabber
