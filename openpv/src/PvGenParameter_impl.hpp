#pragma once
/// \file
/// What stands behind a parameter: a feature of a camera, or a setting of the connection.

#include <cstdint>
#include <string>
#include <vector>

#include <PvGenEnumEntry.h>
#include <PvGenParameter.h>
#include <PvResult.h>

/// A parameter has one kind and overrides the operations of that kind; the others refuse. On a result that is not OK
/// the receiving argument is left alone. Operations may be called from any thread.
struct PvGenParameter::impl {
    virtual ~impl() = default;
    virtual PvGenType type() const = 0;

    struct integer_limits {
        int64_t minimum = 0;
        int64_t maximum = 0;
        int64_t increment = 1;
    };
    struct float_limits {
        double minimum = 0;
        double maximum = 0;
    };

    virtual PvResult get_integer(int64_t&) { return other_kind(); }
    virtual PvResult set_integer(int64_t) { return other_kind(); }
    virtual PvResult get_integer_limits(integer_limits&) { return other_kind(); }

    virtual PvResult get_float(double&) { return other_kind(); }
    virtual PvResult set_float(double) { return other_kind(); }
    virtual PvResult get_float_limits(float_limits&) { return other_kind(); }

    virtual PvResult get_boolean(bool&) { return other_kind(); }
    virtual PvResult set_boolean(bool) { return other_kind(); }

    virtual PvResult get_string(std::string&) { return other_kind(); }
    virtual PvResult execute() { return other_kind(); }

    virtual PvResult get_entry(std::string& /*name*/) { return other_kind(); }
    virtual PvResult get_entry(int64_t& /*value*/) { return other_kind(); }
    virtual PvResult set_entry(std::string const& /*name*/) { return other_kind(); }
    virtual PvResult set_entry(int64_t /*value*/) { return other_kind(); }
    /// The entries that may be set now, in the order of the camera's description.
    virtual PvResult list_entries(std::vector<PvGenEnumEntry const*>&) { return other_kind(); }

private:
    static PvResult other_kind() {
        return {PvResult::Code::NOT_SUPPORTED, "A parameter of this kind has no such operation."};
    }
};
