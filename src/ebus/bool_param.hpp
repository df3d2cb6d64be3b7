// SPDX-License-Identifier: MIT
#pragma once
#include <PvString.h>

#include "param_provider_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// A switch of the camera that is an enumeration of two entries, for example "Continuous" and "Off".
///
/// Lives in a feature block and must not outlive its provider. It reads nothing and remembers nothing.
class bool_enum_param {
public:
    /// \param provider gives access to the camera's features
    /// \param name of the feature
    /// \param trueText entry for true
    /// \param falseText entry for false
    bool_enum_param(param_provider_like* provider, char const* name, char const* trueText, char const* falseText);

    /// Writes the entry for `value`, also if the camera has it already.
    /// \throws internal_error no camera is configured, or the camera refuses the entry
    void setValue(bool value);

private:
    param_provider_like* provider_;
    PvString name_;
    PvString trueText_;
    PvString falseText_;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
