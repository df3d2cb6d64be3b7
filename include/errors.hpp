#pragma once
/// \file
/// Exceptions of the plug-in. They carry no data: what failed is logged where it fails, before the throw.

#include <exception>

namespace Vorn::Support {

/// Root of the plug-in's exceptions.
class generic_error : public std::exception {};

/// The SDK or the device refused an operation that should work.
class internal_error : public generic_error {};

/// A value from outside, configured or read from the device, can't be used.
class external_error : public generic_error {};

/// A requested limit contradicts the device's own.
class params_error : public external_error {};

}  // namespace Vorn::Support
