// SPDX-License-Identifier: MIT
#include "genicam/zip_archive.hpp"

#include <memory>
#include <stdexcept>

#include <zip.h>

namespace camsim {
namespace {

struct source_free {
    void operator()(zip_source_t* source) const { zip_source_free(source); }
};

}  // namespace

std::string zip_archive(std::string const& name, std::string const& content) {
    std::unique_ptr<zip_source_t, source_free> const memory(zip_source_buffer_create(nullptr, 0, 0, nullptr));
    zip_t* const archive = memory != nullptr ? zip_open_from_source(memory.get(), ZIP_TRUNCATE, nullptr) : nullptr;
    if (archive == nullptr) {
        throw std::runtime_error("the GenICam XML cannot be compressed");
    }
    zip_source_keep(memory.get());  // zip_close drops a reference
    zip_source_t* const source = zip_source_buffer(archive, content.data(), content.size(), 0);
    zip_stat_t written;
    zip_stat_init(&written);
    bool const made = source != nullptr && zip_file_add(archive, name.c_str(), source, 0) >= 0 &&
                      zip_close(archive) == 0 && zip_source_stat(memory.get(), &written) == 0;
    if (!made || zip_source_open(memory.get()) != 0) {
        throw std::runtime_error("the GenICam XML cannot be compressed");
    }
    std::string bytes(written.size, '\0');
    zip_source_read(memory.get(), bytes.data(), bytes.size());
    zip_source_close(memory.get());
    return bytes;
}

}  // namespace camsim
