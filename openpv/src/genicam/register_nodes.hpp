// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Nodes with a register.

#include <memory>
#include <string_view>

#include "genicam/node.hpp"
#include "genicam/register_window.hpp"

namespace openpv {

/// \return a node for an element with this tag, for example "IntReg"; null for other elements
std::unique_ptr<node> make_register_node(std::string_view tag);
/// The register of a StructReg, and an entry of it: some bits, which are an integer.
std::unique_ptr<node> make_structure(std::shared_ptr<register_window> window);
std::unique_ptr<node> make_structure_entry(std::shared_ptr<register_window> window);

}  // namespace openpv
