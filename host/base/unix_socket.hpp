// SPDX-License-Identifier: MIT
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/file_handle.hpp"

namespace mediagrabber {

/// The default path of the control socket: in the user's runtime directory ($XDG_RUNTIME_DIR, or /run/user/UID if it
/// exists), for root in /run. Nothing for a user without such a directory: in /tmp, any user could take the path.
/// \param name  of the recording
std::optional<std::filesystem::path> default_control_socket(std::string const& name);

/// A control socket at one of the default paths. Its process may have died.
struct found_control_socket {
    std::filesystem::path path;
    std::string service;  ///< NAME of mediagrabber\@NAME; empty: a recording of this user
};

/// The control sockets at the default paths of this user, in the order of their names.
std::vector<found_control_socket> control_sockets_of_user();
/// Those of services.
/// \param runtime  the parent of the runtime directories of services
std::vector<found_control_socket> control_sockets_of_services(std::filesystem::path const& runtime = "/run");

/// The control socket of the service mediagrabber\@NAME, which is in its runtime directory.
/// \param runtime  the parent of the runtime directories of services
/// \throws std::runtime_error  if there is none, or more than one
std::filesystem::path service_control_socket(std::string const& name, std::filesystem::path const& runtime = "/run");

/// A path as a socket address. \throws usage_error if it is too long
sockaddr_un unix_socket(std::filesystem::path const& path);

/// Connects to the process that listens at `path`.
/// \param type     SOCK_STREAM or SOCK_SEQPACKET
/// \param patience  to wait for a place in the listener's queue, and later for each send(); 0: do not wait for a place
/// \return empty, with errno set, if no process listens, or EAGAIN if the queue is full
file_handle connect_to(std::filesystem::path const& path, int type = SOCK_STREAM,
                       std::chrono::milliseconds patience = std::chrono::seconds(5));

/// Whether the peer process of a connection belongs to this user, to root, or to a user in a group.
bool may_connect(file_handle const& connection, std::optional<gid_t> group);

/// \param name  name or number of a group \return its number; empty if the group does not exist
std::optional<gid_t> group_number(std::string const& name);

}  // namespace mediagrabber
