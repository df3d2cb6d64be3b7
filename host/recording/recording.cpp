#include "recording/recording.hpp"

#include <fcntl.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "recording/bigtiff_file.hpp"
#include "recording/raw_file.hpp"
#include "recording/tiff_files.hpp"

namespace mediagrabber {

namespace {

file_handle open_directory(std::filesystem::path const& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        throw std::runtime_error(path.string() + ": the directory can't be created: " + error.message());
    }
    file_handle opened(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened) {
        throw std::runtime_error(path.string() + ": " + std::generic_category().message(errno));
    }
    return opened;
}

/// \return nothing when only the journal is to be written
std::unique_ptr<frame_writer_like> writer_for(int directory, recording_format const& format) {
    tiff_file tiff(format.compression, format.software, format.model);
    switch (format.kind) {
        case output_format::tiff:
            return std::make_unique<tiff_files>(directory, std::move(tiff));
        case output_format::bigtiff:
            return std::make_unique<bigtiff_file>(directory, std::move(tiff));
        case output_format::raw:
            return std::make_unique<raw_file>(directory);
        case output_format::none:
            break;
    }
    return nullptr;
}

/// The name that a system call failed for, with which its message begins.
std::string name_in(std::system_error const& error) {
    std::string const text = error.what();
    return text.substr(0, text.find(':'));
}

}  // namespace

/// The writer comes before the journal: where there is a journal already, what the writer has made is removed again.
recording::recording(std::filesystem::path directory, recording_format const& format) try
    : path_(std::move(directory)),
      directory_(open_directory(path_)),
      writer_(writer_for(directory_.get(), format)),
      journal_(directory_.get()) {
} catch (std::system_error const& error) {
    if (error.code() == std::errc::file_exists) {
        throw std::runtime_error("the output directory holds a recording already (" + name_in(error) +
                                 "), give another one");
    }
    throw std::runtime_error(std::string("the output directory can't be written to: ") + error.what());
}

std::size_t recording::keep(frame_view const& frame) {
    auto const written = writer_ == nullptr ? written_frame() : writer_->write(frame);
    try {
        std::string const line = journal_line(frame.record, written.place);
        journal_.append(line);
        return written.bytes + line.size();
    } catch (...) {
        if (writer_ != nullptr) {
            writer_->take_back();
        }
        throw;
    }
}

}  // namespace mediagrabber
