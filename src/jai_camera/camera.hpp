#pragma once
#include <PvDevice.h>
#include <PvDeviceInfo.h>
#include <PvStream.h>

#include <memory>
#include <vector>

#include "ebus/double_param.hpp"
#include "gpio_like.hpp"
#include "grabcontrol_like.hpp"
#include "param_provider_like.hpp"
#include "sensor_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

/// What the camera applies to its pixels: nothing, a table, or a gamma.
enum jai_lut_gamma_state {
    lg_error = 0,  ///< could not be read
    lg_off = 1,
    lg_lut = 2,
    lg_gamma = 3,
    lg_other = 4,
};

/// The camera's frame rate, in frames per second.
struct frame_rate_param final : rw_double_param {
    explicit frame_rate_param(param_provider_like* provider) : rw_double_param(provider, "AcquisitionFrameRate") {}
};

/// One connected camera: its device, its stream and its feature blocks.
///
/// The fields are in order of construction; the camera falls apart in the reverse order, so the stream and the device
/// outlive everything that reaches them.
class camera final : public param_provider_like {
public:
    using device_handle = std::unique_ptr<PvDevice, void (*)(PvDevice*)>;
    using stream_handle = std::unique_ptr<PvStream, void (*)(PvStream*)>;

    /// Connects the device and opens its stream. Throws `internal_error` when either fails.
    explicit camera(PvDeviceInfo const* info);
    /// Disconnects. Whoever started capture has stopped it before.
    ~camera() override;
    camera(camera const&) = delete;
    camera& operator=(camera const&) = delete;

    PvGenParameterArray* getDevParams() override { return deviceParams; }

    /// Configures both output lines. A line that can't be configured never keeps the other from being configured.
    void setupGpio(property_bag const& bag);

    /// Start and stop capture. \return 0, -1 without a configured device (stopping: or stream), -2 without the command,
    /// -3 when the stream channel, -4 when the command is refused
    int ExStartCapture();
    int ExStopCapture();

    /// Tone curve of the camera (tone_curve.cpp). All report failures by their result and a warning; 0 is success.
    int ExPropertySetLUTMode(jai_lut_gamma_state mode);
    jai_lut_gamma_state ExPropertyGetLUTMode();
    int ExPropertySetLUTValue(int index, int value);
    int ExPropertySetLUTChannel(int channel, int channels);  ///< of `channels`; a single one is not selected
    int ExPropertyGetGammaRange(float* min, float* max);     ///< outputs may be null
    int ExPropertySetGamma(float gamma);                     ///< to the nearest value that the camera offers
    int ExPropertyGetGamma(float& gamma);                    ///< leaves `gamma` alone while the camera applies none

    PvDeviceInfo const* const info;
    device_handle device;
    stream_handle stream;
    PvGenParameterArray* deviceParams = nullptr;  ///< null until the camera is configured
    std::unique_ptr<sensor_like> sensor;
    std::unique_ptr<grabcontrol_like> grabControl;
    std::unique_ptr<gpio_like> gpioLine2;
    std::unique_ptr<gpio_like> gpioLine3;
    frame_rate_param frameRate;
    std::vector<float> gammaValues;  ///< of the gamma feature's entries, in their order
    char gammaFeatureName[32] = "JAIGamma";
    float gammaMin = 0.0F;  ///< first of the values
    float gammaMax = 0.0F;  ///< last of the values
    bool gammaRangeKnown = false;

private:
    int readGammaValues(PvGenEnum& feature);
    int findGammaEntry(float gamma) const;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
