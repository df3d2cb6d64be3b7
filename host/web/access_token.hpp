#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "configuration.hpp"

namespace mediagrabber {

inline constexpr std::size_t shortest_token = 16;

/// The secret that lets somebody look at a recording and change it.
class access_token {
public:
    /// Reads it from a file that nobody but its owner and group may read: one line. \throws std::runtime_error
    static access_token read(std::filesystem::path const& file);
    /// \throws std::runtime_error when it is too short, or has other characters than visible ones
    explicit access_token(std::string secret);

    /// Takes as long for a token that is nearly right as for one that is not.
    bool is(std::string_view offered) const;

private:
    std::string secret_;
};

/// Checks that an address and its token file go together, without opening the file. \throws std::runtime_error
void check_web_values(configuration const& values);

/// Whether two texts are the same; takes a time that depends on the length of `offered` alone.
bool same_in_constant_time(std::string_view secret, std::string_view offered);

}  // namespace mediagrabber
