// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The features of a camera, evaluated.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <PvResult.h>

#include "genicam/node.hpp"
#include "genicam/node_loader.hpp"
#include "genicam/register_window.hpp"
#include "gvcp/register_port.hpp"

namespace openpv {

/// All nodes of a camera's GenICam XML, compiled for one connection.
///
/// The XML is parsed and its references are resolved once; a value is then read by following pointers. Formulas,
/// limits, availability, access modes and caching are evaluated here, and the camera is accessed only for the bytes of
/// registers. Evaluation allocates nothing on success, except for texts, and ends for each XML and each content of
/// registers: references are checked when the XML is loaded.
///
/// Thread-safe. No lock is held during a round trip to the camera, except while a part of a register is changed.
class node_graph {
public:
    /// \param port borrowed as long as the graph
    /// \param error receives the reason why the XML is invalid, for example a feature that refers to itself
    /// \return null on failure
    static std::unique_ptr<node_graph> load(std::string_view xml, register_port& port, std::string& error);

    /// \return null if no node has this name
    node* find(std::string_view name) const;
    /// As `find`, but also null if a register that the node depends on has an invalid length.
    node* find_usable(std::string_view name) const;

private:
    explicit node_graph(register_port& port) : camera_{port, false, {}} {}

    camera_registers camera_;
    std::vector<std::unique_ptr<node>> nodes_;
    nodes_by_name by_name_;
};

/// Whether a node is about to be read or written.
enum class direction { read, write };

/// Checks whether the node can be read, or written, in the camera's current state. May read from the camera.
bool check_access(evaluation& state, node const& one, direction wanted);
/// Whether the node is implemented, and available in the camera's current state.
bool is_usable(evaluation& state, node const& one, bool& usable);
/// \param what what failed, as the start of a sentence: "Width cannot be read"
/// \return the failure of an evaluation
PvResult to_failure(std::string const& what, evaluation const& state);

}  // namespace openpv
