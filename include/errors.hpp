// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Exceptions of the plug-in. Feature blocks and parameter wrappers throw them; kernel and camera operations return
/// result codes instead. They carry no data: the code that throws logs what failed first, so a handler does not log it
/// again.

#include <exception>

namespace Vorn::Support {

/// Root of the plug-in's exceptions.
class generic_error : public std::exception {};

/// The SDK or the camera refused an operation that is expected to work.
class internal_error : public generic_error {};

/// A value from the configuration or the camera is not valid.
class external_error : public generic_error {};

/// A configured value or limit contradicts the camera's own limits.
class params_error : public external_error {};

}  // namespace Vorn::Support
