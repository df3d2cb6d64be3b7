// SPDX-License-Identifier: MIT
#include <cmath>

#include "device/bootstrap_registers.hpp"
#include "features/camera_features.hpp"

namespace camsim {

namespace {

feature identity_text(std::string name, std::string tooltip, std::uint32_t address, std::uint32_t length) {
    return {.name = std::move(name),
            .category = "DeviceControl",
            .tooltip = std::move(tooltip),
            .access = access_mode::read_only,
            .kind = string_kind{length},
            .standard = standard_register{address}};
}

/// Without fault overheating: rises from 38 to 44 degrees Celsius within about ten minutes, and varies slightly, so
/// that two readings differ.
double temperature_after(camera_time running) {
    double const seconds = static_cast<double>(running.count()) * 1e-9;
    return 38.0 + 6.0 * (1.0 - std::exp(-seconds / 600.0)) + 0.3 * std::sin(seconds / 7.0);
}

feature device_temperature(camera_state& state) {
    return {.name = "DeviceTemperature",
            .category = "DeviceControl",
            .tooltip = "Temperature of the sensor board",
            .unit = "\u00B0C",
            .access = access_mode::read_only,
            .cachable = false,
            .polling_time_ms = 1000,
            .kind = float_kind{
                .get = [&state] { return state.overheated_celsius.value_or(temperature_after(state.now())); },
                .set = {},
                .minimum = -40.0,
                .maximum = 125.0}};
}

}  // namespace

std::vector<feature> device_features(camera_state& state) {
    feature user_id = identity_text("DeviceUserID", "Name assigned by the user", bootstrap::user_defined_name, 16);
    user_id.access = access_mode::read_write;
    std::vector<feature> features;
    features.push_back(identity_text("DeviceVendorName", "Manufacturer", bootstrap::manufacturer_name, 32));
    features.push_back(identity_text("DeviceModelName", "Model", bootstrap::model_name, 32));
    features.push_back(identity_text("DeviceManufacturerInfo", "Additional information from the manufacturer",
                                     bootstrap::manufacturer_info, 48));
    features.push_back(identity_text("DeviceVersion", "Version of the device", bootstrap::device_version, 32));
    features.push_back(identity_text("DeviceID", "Serial number", bootstrap::serial_number, 16));
    features.push_back(identity_text("DeviceSerialNumber", "Serial number", bootstrap::serial_number, 16));
    features.push_back(std::move(user_id));
    features.push_back(device_temperature(state));
    return features;
}

}  // namespace camsim
