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

/// \return the node of a feature; null when the description has none, or one whose value takes a register of a length
/// that no register has. Aravis would ask for as much memory, and end the process for want of it. May ask the camera.
ArvGcFeatureNode* find_usable_feature(ArvDevice& device, std::string const& name);

}  // namespace openpv
