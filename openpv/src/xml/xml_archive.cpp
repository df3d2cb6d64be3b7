// SPDX-License-Identifier: MIT
#include "xml/xml_archive.hpp"

#include <cstdint>
#include <memory>
#include <string_view>

#include <strings.h>
#include <zip.h>

#include "xml/xml_url.hpp"

namespace openpv {
namespace {

constexpr zip_int64_t max_entries = 16;
constexpr std::uint64_t max_ratio = 200;

struct discard {
    void operator()(zip_t* archive) const { zip_discard(archive); }
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};
using archive_handle = std::unique_ptr<zip_t, discard>;
using file_handle = std::unique_ptr<zip_file_t, discard>;

archive_handle open_archive(std::span<std::byte const> bytes, std::string& error) {
    zip_error_t reason;
    zip_error_init(&reason);
    zip_source_t* const source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &reason);
    zip_t* const archive = source != nullptr ? zip_open_from_source(source, ZIP_RDONLY, &reason) : nullptr;
    if (archive == nullptr) {
        error = std::string("the ZIP archive is damaged: ") + zip_error_strerror(&reason);
        if (source != nullptr) {
            zip_source_free(source);
        }
    }
    zip_error_fini(&reason);
    return archive_handle(archive);
}

bool is_xml(char const* name) {
    constexpr std::string_view extension = ".xml";
    std::string_view const text(name != nullptr ? name : "");
    return text.size() >= extension.size() &&
           strcasecmp(text.data() + text.size() - extension.size(), extension.data()) == 0;
}

zip_uint64_t find_entry(zip_t& archive, zip_int64_t count) {
    for (zip_int64_t i = 0; i < count; ++i) {
        if (is_xml(zip_get_name(&archive, static_cast<zip_uint64_t>(i), 0))) {
            return static_cast<zip_uint64_t>(i);
        }
    }
    return 0;
}

/// \return null if the entry is acceptable
char const* find_error(zip_stat_t const& entry) {
    constexpr zip_uint64_t needed = ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD;
    if ((entry.valid & needed) != needed) {
        return "does not contain the size of its entry";
    }
    if (entry.size == 0 || entry.size > xml_url::max_bytes) {
        return "has an entry outside 1 byte to 16 MiB";
    }
    if (entry.size / max_ratio > entry.comp_size) {
        return "has an entry with a compression ratio above 200";
    }
    if (entry.comp_method != ZIP_CM_STORE && entry.comp_method != ZIP_CM_DEFLATE) {
        return "uses a compression method other than \"stored\" and \"deflate\"";
    }
    bool const encrypted = (entry.valid & ZIP_STAT_ENCRYPTION_METHOD) != 0 && entry.encryption_method != ZIP_EM_NONE;
    return encrypted ? "is encrypted" : nullptr;
}

/// Reads to the end of the entry, where libzip checks the checksum.
bool read_entry(zip_file_t& file, std::string& text) {
    std::size_t at = 0;
    while (at < text.size()) {
        zip_int64_t const got = zip_fread(&file, text.data() + at, text.size() - at);
        if (got <= 0) {
            return false;
        }
        at += static_cast<std::size_t>(got);
    }
    char beyond = 0;
    return zip_fread(&file, &beyond, 1) == 0;
}

}  // namespace

std::optional<std::string> unpack_xml(std::span<std::byte const> bytes, std::string& error) {
    auto const archive = open_archive(bytes, error);
    if (archive == nullptr) {
        return std::nullopt;
    }
    zip_int64_t const count = zip_get_num_entries(archive.get(), 0);
    if (count < 1 || count > max_entries) {
        error = "the ZIP archive has " + std::to_string(count) + " entries, expected 1 to 16";
        return std::nullopt;
    }
    zip_uint64_t const index = find_entry(*archive, count);
    zip_stat_t entry;
    zip_stat_init(&entry);
    if (zip_stat_index(archive.get(), index, 0, &entry) != 0) {
        error = std::string("the ZIP archive is damaged: ") + zip_strerror(archive.get());
        return std::nullopt;
    }
    if (char const* const reason = find_error(entry)) {
        error = std::string("the ZIP archive ") + reason;
        return std::nullopt;
    }
    file_handle const file(zip_fopen_index(archive.get(), index, 0));
    std::string text(entry.size, '\0');
    if (file == nullptr || !read_entry(*file, text)) {
        error = "the entry of the ZIP archive cannot be unpacked, or its size or checksum is wrong";
        return std::nullopt;
    }
    return text;
}

}  // namespace openpv
