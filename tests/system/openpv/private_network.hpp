#pragma once
/// \file
/// A network of the test's own.

#include <string>

/// Moves this process, and what it starts later, into a network namespace where only the loopback interface exists, and
/// is up. To be called before there is a second thread. Ends the process with a message when the kernel does not allow
/// it.
void enter_private_network();

/// Runs a program of the host, `ip` for one. \return whether it succeeded
bool run_command(std::string const& command);
