#pragma once
/// \file
/// What an error of Aravis means to a user of the layer.

#include <string>

#include <arv.h>

#include <PvResult.h>

namespace openpv {

/// \param what what could not be done, as the beginning of a sentence: "Width cannot be set to 7"
/// \param error null: it was done after all
PvResult to_result(std::string const& what, GError const* error);
/// For a call that certainly failed: without an error too, the result is not OK.
PvResult to_failure(std::string const& what, GError const* error);

}  // namespace openpv
