#pragma once
/// \file
/// Whether a camera's description of itself can be used at all.

#include <optional>
#include <string>

#include <arv.h>

namespace openpv {

/// Aravis follows the references of a description wherever they lead: round in a circle it would do so until the stack
/// is full, and through nodes that lead to each other many times over it would take for ever.
///
/// \return why the description cannot be used, null when it can
std::optional<std::string> find_endless_reference(ArvGc& description);

}  // namespace openpv
