// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "config/configuration.hpp"

namespace mediagrabber {

inline constexpr std::size_t min_token = 16;  ///< characters; with a retry delay of 32 s, guessing is infeasible

/// The secret that authorises clients of the page. Immutable, so any thread may use it.
class access_token {
public:
    /// Reads the token from the only line of a file.
    /// \throws std::runtime_error  with a message for the operator, also if users other than owner and group may read
    ///                             or write the file
    static access_token read(std::filesystem::path const& file);
    /// \throws std::runtime_error if the token is shorter than min_token or has blanks or control characters
    explicit access_token(std::string secret);

    /// Compares in constant time, so that a client cannot find the token character by character.
    bool matches(std::string_view offered) const;
    /// \return the Authorization header of a client that has the token
    std::string authorization() const { return "Bearer " + secret_; }

private:
    std::string secret_;
};

/// Checks that a page that other machines can reach, directly or through a proxy, has a token file. Does not open it.
/// \throws std::runtime_error
void check_web_values(web_configuration const& values);

/// \return whether the texts are equal; the time depends only on the length of `offered`
bool same_in_constant_time(std::string_view secret, std::string_view offered);

}  // namespace mediagrabber
