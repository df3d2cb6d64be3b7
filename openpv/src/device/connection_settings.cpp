// SPDX-License-Identifier: MIT
#include "device/connection_settings.hpp"

#include <string>
#include <utility>

#include "genicam/PvGenParameter_impl.hpp"
#include "genicam/PvGenParameterArray_impl.hpp"
#include "genicam/value_limits.hpp"

namespace openpv {
namespace {

/// GigE Vision: the smallest packet size that every camera supports, and the largest multiple of 4 in the 16-bit field.
constexpr PvGenParameter::impl::integer_limits packet_size_limits{576, 65532, 4};

class auto_negotiation_setting : public PvGenParameter::impl {
public:
    explicit auto_negotiation_setting(std::shared_ptr<connection_settings> settings) : settings_(std::move(settings)) {}
    PvGenType type() const override { return PvGenTypeBoolean; }

    PvResult get_boolean(bool& value) override {
        value = settings_->auto_negotiation;
        return {};
    }
    PvResult set_boolean(bool value) override {
        settings_->auto_negotiation = value;
        return {};
    }

private:
    std::shared_ptr<connection_settings> settings_;
};

class default_packet_size_setting : public PvGenParameter::impl {
public:
    explicit default_packet_size_setting(std::shared_ptr<connection_settings> settings)
        : settings_(std::move(settings)) {}
    PvGenType type() const override { return PvGenTypeInteger; }

    PvResult get_integer(std::int64_t& value) override {
        value = settings_->default_packet_size;
        return {};
    }
    PvResult set_integer(std::int64_t value) override {
        PvResult const allowed = check_limits("DefaultPacketSize", value, packet_size_limits);
        if (allowed.IsOK()) {
            settings_->default_packet_size = value;
        }
        return allowed;
    }
    PvResult get_integer_limits(integer_limits& limits) override {
        limits = packet_size_limits;
        return {};
    }

private:
    std::shared_ptr<connection_settings> settings_;
};

struct settings_array : PvGenParameterArray::impl {
    explicit settings_array(std::shared_ptr<connection_settings> all) : settings(std::move(all)) {}

    PvResult make(std::string const& name, std::unique_ptr<PvGenParameter::impl>& made) override {
        if (name == "AutoNegotiation") {
            made = std::make_unique<auto_negotiation_setting>(settings);
        } else if (name == "DefaultPacketSize") {
            made = std::make_unique<default_packet_size_setting>(settings);
        } else {
            return {PvResult::Code::NOT_FOUND, ("The connection has no setting \"" + name + "\".").c_str()};
        }
        return {};
    }

    std::shared_ptr<connection_settings> settings;
};

}  // namespace

std::unique_ptr<PvGenParameterArray> make_communication_parameters(std::shared_ptr<connection_settings> settings) {
    return std::make_unique<PvGenParameterArray>(std::make_unique<settings_array>(std::move(settings)));
}

}  // namespace openpv
