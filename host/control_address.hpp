#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <filesystem>

#include "file_handle.hpp"

namespace mediagrabber {

/// Where a mediagrabber with this instance number listens unless it is configured otherwise: in the user's runtime
/// directory ($XDG_RUNTIME_DIR), for root in /run, else in /tmp under a name with the user's number.
std::filesystem::path default_control_socket(std::uint32_t instance);

/// A path as the address of a socket. \throws std::runtime_error when it is too long
sockaddr_un control_address(std::filesystem::path const& path);

/// A socket that is connected to whoever listens at `path`; empty, with errno set, when nobody does.
/// \param type SOCK_STREAM or SOCK_SEQPACKET
file_handle connect_to(std::filesystem::path const& path, int type = SOCK_STREAM);

/// Whether the process at the other end of a socket belongs to this user or to root.
bool is_of_this_user(file_handle const& connection);

}  // namespace mediagrabber
