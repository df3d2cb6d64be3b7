// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Implementation of a parameter: a camera feature or a connection setting.

#include <cstdint>
#include <string>
#include <vector>

#include <PvGenEnumEntry.h>
#include <PvGenParameter.h>
#include <PvResult.h>

/// Base of all parameter implementations. A parameter has one type and overrides the operations of that type; the
/// others return NOT_SUPPORTED. If a result is not OK, the argument that receives a value is unchanged. Operations may
/// be called from any thread. The parameter array owns the public object, which owns its implementation.
struct PvGenParameter::impl {
    virtual ~impl() = default;
    virtual PvGenType type() const = 0;

    struct integer_limits {
        std::int64_t minimum = 0;
        std::int64_t maximum = 0;
        std::int64_t increment = 1;
    };
    struct float_limits {
        double minimum = 0;
        double maximum = 0;
    };

    virtual PvResult get_integer(std::int64_t&) { return unsupported(); }
    virtual PvResult set_integer(std::int64_t) { return unsupported(); }
    virtual PvResult get_integer_limits(integer_limits&) { return unsupported(); }

    virtual PvResult get_float(double&) { return unsupported(); }
    virtual PvResult set_float(double) { return unsupported(); }
    virtual PvResult get_float_limits(float_limits&) { return unsupported(); }

    virtual PvResult get_boolean(bool&) { return unsupported(); }
    virtual PvResult set_boolean(bool) { return unsupported(); }

    virtual PvResult get_string(std::string&) { return unsupported(); }
    virtual PvResult execute() { return unsupported(); }

    virtual PvResult get_entry(std::string& /*name*/) { return unsupported(); }
    virtual PvResult get_entry(std::int64_t& /*value*/) { return unsupported(); }
    virtual PvResult set_entry(std::string const& /*name*/) { return unsupported(); }
    virtual PvResult set_entry(std::int64_t /*value*/) { return unsupported(); }
    /// Lists the entries that can be set now, in the order of the GenICam XML. They live as long as the parameter.
    virtual PvResult list_entries(std::vector<PvGenEnumEntry const*>&) { return unsupported(); }

private:
    static PvResult unsupported() {
        return {PvResult::Code::NOT_SUPPORTED, "The operation does not exist for a parameter of this type."};
    }
};

struct PvGenEnumEntry::impl {
    std::string name;
    std::int64_t value = 0;
};
