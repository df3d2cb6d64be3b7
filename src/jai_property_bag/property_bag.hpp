// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <map>

namespace Vorn::Support::MediaGrabber::Jai {

/// Keys of configured values, with type and unit. 0, 15 and 18 are reserved.
enum class property : uint8_t {
    sensor_x = 1,            ///< int64, pixels
    sensor_y = 2,            ///< int64, pixels
    sensor_w = 3,            ///< int64, pixels
    sensor_h = 4,            ///< int64, pixels
    auto_target = 5,         ///< int64, brightness target in hundredths
    auto_area_enable = 6,    ///< bool
    auto_gain = 7,           ///< bool
    auto_gain_min = 8,       ///< double, dB
    auto_gain_max = 9,       ///< double, dB
    auto_exposure = 10,      ///< bool
    auto_exposure_min = 11,  ///< int64, microseconds
    auto_exposure_max = 12,  ///< int64, microseconds
    manual_gain_db = 13,     ///< double, dB
    manual_exposure = 14,    ///< double, microseconds
    line2_source = 16,       ///< int64, a `line_source`
    line2_inverter = 17,     ///< int64, a `line_inverter`
    line3_source = 19,       ///< int64, as line 2
    line3_inverter = 20,     ///< int64, as line 2
};

/// Signal source of an output line.
enum class line_source : uint8_t { exposure_active = 1, low = 2 };

/// Inverter of an output line.
enum class line_inverter : uint8_t { on = 1, off = 2 };

/// Configured values by key, each with its type. An absent key means that the value is not configured.
///
/// It decouples the feature blocks from the host: `conf_unpack.hpp` fills a bag from the host's configuration, a
/// block's `setup` reads its own keys from it. A bag is a short-lived value: filled for one set-up, then discarded. It
/// holds no references and has no locks.
class property_bag {
public:
    /// A value with its type. The tags are part of an error message; 0 and 1 are unused.
    struct property_data {
        enum type_tag : uint8_t { type_bool = 2, type_int64 = 3, type_double = 4 };
        union {
            bool asBool;
            int64_t asInt64;
            double asDouble;
        };
        type_tag type;
    };

    /// \name Writing
    /// A key that is present gets the new value and type.
    /// @{
    void setBool(property key, bool value);
    void setInt64(property key, int64_t value);
    void setDouble(property key, double value);
    /// @}

    /// \name Reading
    /// \param key to look up
    /// \param value receives the value; unchanged if the key is absent
    /// \return whether the key is present
    /// \throws external_error the value has another type, which is logged
    /// @{
    bool getBool(property key, bool& value) const;
    bool getInt64(property key, int64_t& value) const;
    bool getDouble(property key, double& value) const;
    /// @}

private:
    property_data const* find(property key, property_data::type_tag type) const;

    std::map<property, property_data> values_;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
