// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Network namespaces for tests.

#include <string>

/// Moves this process, and what it starts later, into a network namespace where only the loopback interface exists, and
/// is up. Call it before a second thread exists. Ends the process with a message if the kernel does not permit it.
void enter_private_network();

/// Runs a program of the host, `ip` for one. \return whether it succeeded
bool run_command(std::string const& command);
