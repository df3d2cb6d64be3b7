// SPDX-License-Identifier: MIT
#include <cstdint>
#include <limits>
#include <optional>

#include "ebus/int64_param.hpp"
#include "errors.hpp"
#include "int128.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "mg_log.hpp"
#include "sensor_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_SENSOR";

namespace {

/// Pixels between the largest offset and the far edge of the sensor.
constexpr int64_t _S_offsetMargin = 16;

struct sensor_w_max_param : ro_int64_param {
    explicit sensor_w_max_param(param_provider_like* provider) : ro_int64_param(provider, "WidthMax") {}
};
struct sensor_h_max_param : ro_int64_param {
    explicit sensor_h_max_param(param_provider_like* provider) : ro_int64_param(provider, "HeightMax") {}
};
struct sensor_x_param : rw_int64_param {
    explicit sensor_x_param(param_provider_like* provider) : rw_int64_param(provider, "OffsetX") {}
};
struct sensor_y_param : rw_int64_param {
    explicit sensor_y_param(param_provider_like* provider) : rw_int64_param(provider, "OffsetY") {}
};
struct sensor_w_param : rw_int64_param {
    explicit sensor_w_param(param_provider_like* provider) : rw_int64_param(provider, "Width") {}
};
struct sensor_h_param : rw_int64_param {
    explicit sensor_h_param(param_provider_like* provider) : rw_int64_param(provider, "Height") {}
};

/// The configured part of a region. Absent values keep their current value.
struct requested_region {
    std::optional<int64_t> x, y, w, h;

    explicit requested_region(property_bag const& bag)
        : x(value(bag, property::sensor_x)),
          y(value(bag, property::sensor_y)),
          w(value(bag, property::sensor_w)),
          h(value(bag, property::sensor_h)) {}

private:
    static std::optional<int64_t> value(property_bag const& bag, property key) {
        int64_t found = 0;
        return bag.getInt64(key, found) ? std::optional(found) : std::nullopt;
    }
};

/// \return largest offset on a sensor of `size` pixels; does not overflow for any size that a camera reports
int64_t _T_max_offset(int64_t size) {
    return size < std::numeric_limits<int64_t>::min() + _S_offsetMargin ? size : size - _S_offsetMargin;
}

/// \return whether `offset` plus `size` is larger than `bound`. In 128 bits, sums of 64-bit numbers do not overflow.
bool _T_reaches_beyond(int64_t offset, int64_t size, int64_t bound) {
    return static_cast<int128>(offset) + size > bound;
}

/// Implementation of the region of interest; see `sensor_like`.
class sensor final : public sensor_like {
public:
    explicit sensor(param_provider_like* provider)
        : widthMax_(provider),
          heightMax_(provider),
          offsetX_(provider),
          offsetY_(provider),
          width_(provider),
          height_(provider) {}

    void initialize() override;
    unsigned getX() const override { return x_; }
    unsigned getY() const override { return y_; }
    unsigned getW() const override { return w_; }
    unsigned getH() const override { return h_; }
    bool testChanged(property_bag const& bag) override;
    void setup(property_bag const& bag) override;

private:
    void narrowOffsets();
    void validateValues(requested_region const& region);
    void validateHorizontally(requested_region const& region);
    void validateVertically(requested_region const& region);
    void write(requested_region const& region);

    sensor_w_max_param widthMax_;
    sensor_h_max_param heightMax_;
    sensor_x_param offsetX_;
    sensor_y_param offsetY_;
    sensor_w_param width_;
    sensor_h_param height_;
    // The region last read from or written to the camera.
    uint32_t x_ = 0;
    uint32_t y_ = 0;
    uint32_t w_ = 0;
    uint32_t h_ = 0;
};

void sensor::initialize() {
    x_ = offsetX_.getValueUint32();
    y_ = offsetY_.getValueUint32();
    w_ = width_.getValueUint32();
    h_ = height_.getValueUint32();
    MG_LOG_I("ROI OffsX x OffsY   : %u x %u\n", x_, y_);
    MG_LOG_I("ROI Width x Height  : %u x %u\n", w_, h_);
}

bool sensor::testChanged(property_bag const& bag) {
    requested_region const region(bag);
    auto const differs = [](std::optional<int64_t> requested, uint32_t current) {
        return requested && *requested != int64_t{current};
    };
    if (differs(region.x, x_) || differs(region.y, y_) || differs(region.w, w_) || differs(region.h, h_)) {
        MG_LOG_D("done: changed:true\n");
        return true;
    }
    return false;
}

/// Completes all checks before the first write, so that a refused region leaves the camera unchanged.
void sensor::setup(property_bag const& bag) {
    narrowOffsets();
    requested_region const region(bag);
    validateValues(region);
    validateHorizontally(region);
    validateVertically(region);
    write(region);
}

/// Derives the largest offsets from the largest sizes.
void sensor::narrowOffsets() {
    offsetX_.setMax(_T_max_offset(width_.getMax()));
    offsetY_.setMax(_T_max_offset(height_.getMax()));
}

void sensor::validateValues(requested_region const& region) {
    mg_log_operation const mgLogFunction{"setup"};
    if (region.x && !offsetX_.validate(*region.x)) {
        MG_LOG_W("fail: sensor_x_param::validate\n");
        throw params_error();
    }
    if (region.y && !offsetY_.validate(*region.y)) {
        MG_LOG_W("fail: sensor_y_param::validate\n");
        throw params_error();
    }
    if (region.w && !width_.validate(*region.w)) {
        MG_LOG_W("fail: sensor_w_param::validate\n");
        throw params_error();
    }
    if (region.h && !height_.validate(*region.h)) {
        MG_LOG_W("fail: sensor_h_param::validate\n");
        throw params_error();
    }
}

void sensor::validateHorizontally(requested_region const& region) {
    mg_log_operation const mgLogFunction{"setup"};
    if ((!region.x && !region.w) || !_T_reaches_beyond(region.x.value_or(x_), region.w.value_or(w_), width_.getMax())) {
        return;
    }
    int64_t const bound = width_.getMax();
    if (region.x && region.w) {
        MG_LOG_W("fail: validate (sensor-x:%li, sensor-w:%li, sensor-w-max:%li)\n", *region.x, *region.w, bound);
    } else if (region.x) {
        MG_LOG_W("fail: validate (sensor-x:%li, sensor-w:%u, sensor-w-max:%li)\n", *region.x, w_, bound);
    } else {
        MG_LOG_W("fail: validate (sensor-x:%u, sensor-w:%li, sensor-w-max:%li)\n", x_, *region.w, bound);
    }
    throw params_error();
}

void sensor::validateVertically(requested_region const& region) {
    mg_log_operation const mgLogFunction{"setup"};
    if ((!region.y && !region.h) ||
        !_T_reaches_beyond(region.y.value_or(y_), region.h.value_or(h_), height_.getMax())) {
        return;
    }
    int64_t const bound = height_.getMax();
    if (region.y && region.h) {
        MG_LOG_W("fail: validate (sensor-y:%li, sensor-h:%li, sensor-h-max:%li)\n", *region.y, *region.h, bound);
    } else if (region.y) {
        MG_LOG_W("fail: validate (sensor-y:%li, sensor-h:%u, sensor-h-max:%li)\n", *region.y, h_, bound);
    } else {
        MG_LOG_W("fail: validate (sensor-y:%u, sensor-h:%li, sensor-h-max:%li)\n", y_, *region.h, bound);
    }
    throw params_error();
}

/// Writes offsets before sizes. Remembers each value as soon as the camera has accepted it, so that the remembered
/// region is correct if a later write fails. A value is remembered modulo 2^32: it exceeds 32 bits only if the camera's
/// own limits do.
void sensor::write(requested_region const& region) {
    auto const put = [](rw_int64_param& param, std::optional<int64_t> value, uint32_t& current) {
        if (value) {
            param.setValue(*value);
            current = static_cast<uint32_t>(*value);
        }
    };
    put(offsetX_, region.x, x_);
    put(offsetY_, region.y, y_);
    put(width_, region.w, w_);
    put(height_, region.h, h_);
}

}  // namespace

std::unique_ptr<sensor_like> Sensor__Create(param_provider_like* provider) {
    try {
        return std::make_unique<sensor>(provider);
    } catch (generic_error const&) {
        MG_LOG_E("fail\n");
        throw;
    }
}

}  // namespace Vorn::Support::MediaGrabber::Jai
