#pragma once
#include <PvString.h>

#include "param_provider_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// A switch that the camera carries as an enumeration of two entries.
class bool_enum_param {
public:
    bool_enum_param(param_provider_like* provider, char const* name, char const* trueText, char const* falseText);

    /// Writes the entry for `value`, each time. Throws `internal_error` when the device refuses it.
    void setValue(bool value);

private:
    param_provider_like* provider_;
    PvString name_;
    PvString trueText_;
    PvString falseText_;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
