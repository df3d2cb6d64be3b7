// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Access to the features of a camera.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "features/feature_catalogue.hpp"
#include "features/feature_value.hpp"
#include "genicam/node_graph.hpp"
#include "gvcp/register_port.hpp"

namespace gevctl {

/// What can be done with a feature now.
struct feature_access {
    bool readable = false;
    bool writable = false;  ///< a command: whether it can be executed
    bool settable = false;  ///< as `writable`, also while it is locked
    std::string reason;     ///< why it is less than the GenICam XML allows; empty if it is not
};

/// Values that a feature accepts now.
struct feature_range {
    std::optional<feature_value> minimum;
    std::optional<feature_value> maximum;
    std::optional<feature_value> increment;  ///< null: any step
    std::vector<std::string> entries;        ///< of an enumeration, those that are available
};
/// \return for example `16 .. 2464 step 8`; empty if there are no limits
std::string to_text(feature_range const& range);

/// Reads and writes the features of one camera, with the checks of `openpv::node_graph`: existence, access mode,
/// availability, lock and limits.
///
/// Values are read from the camera, not from the cache: other programs and the camera itself change them. Not
/// thread-safe. Operations throw `failure`: `refused` if the camera or its state does not allow it, `usage` for an
/// invalid value, `lost` if the camera does not respond.
class camera_features {
public:
    /// \param port borrowed as long as this object
    /// \param prepare_write called before each write, takes control
    /// \throws failure for an invalid XML
    camera_features(std::string_view xml, openpv::register_port& port, std::function<void()> prepare_write);

    feature_catalogue const& catalogue() const { return *catalogue_; }
    /// \throws failure if the camera does not have the feature; the message names similar ones
    feature_info const& require(std::string const& name) const;

    /// Whether no state of the camera allows a read, or a write.
    bool is_write_only(feature_info const& one) const;
    bool is_read_only(feature_info const& one) const;
    feature_access access_to(feature_info const& one);
    feature_range range_of(feature_info const& one);
    feature_value read(feature_info const& one);
    void write(feature_info const& one, feature_value const& value);
    void execute(feature_info const& one);

    /// Converts a text of the command line to a value of the feature's type.
    feature_value parse(feature_info const& one, std::string const& text) const;
    /// Converts a value of a file to the feature's type.
    feature_value convert(feature_info const& one, feature_value const& value) const;
    /// The value as the feature's representation wants it, for example `0x1F` or an IPv4 address.
    std::string show(feature_info const& one, feature_value const& value) const;

private:
    openpv::node& node_of(feature_info const& one) const;
    std::string explain(feature_info const& one, char const* condition);

    std::function<void()> prepare_write_;
    std::unique_ptr<openpv::node_graph> graph_;
    std::unique_ptr<feature_catalogue> catalogue_;
};

}  // namespace gevctl
