// SPDX-License-Identifier: MIT
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

/// Values of the camera's "JAILUTMode": what it applies to its pixels.
enum jai_lut_gamma_state {
    lg_error = 0,  ///< can't be read
    lg_off = 1,
    lg_lut = 2,
    lg_gamma = 3,
    lg_other = 4,  ///< an entry that the plug-in does not support
};

/// The camera's frame rate, in frames per second.
struct frame_rate_param final : rw_double_param {
    explicit frame_rate_param(param_provider_like* provider) : rw_double_param(provider, "AcquisitionFrameRate") {}
};

/// One connected camera: its device, its stream, its feature blocks and its tone curve.
///
/// `Kernel__Run` makes one object per run and the kernel works on it. It owns the SDK's handles and the feature blocks;
/// the blocks reach the camera's features through it, so they must not outlive it. The fields are declared in the order
/// of construction: stream and device are destroyed after everything that uses them. Used by the thread that called
/// `MgLibProc`. Construction throws, all other operations return result codes and log failures.
class camera final : public param_provider_like {
public:
    using device_handle = std::unique_ptr<PvDevice, void (*)(PvDevice*)>;
    using stream_handle = std::unique_ptr<PvStream, void (*)(PvStream*)>;

    /// Connects the device and opens its stream.
    /// \param info the device, which must outlive the camera
    /// \throws internal_error the device can't be connected or the stream can't be opened
    explicit camera(PvDeviceInfo const* info);
    /// Disconnects. Capture must be stopped before.
    ~camera() override;
    camera(camera const&) = delete;
    camera& operator=(camera const&) = delete;

    PvGenParameterArray* getDevParams() override { return deviceParams; }

    /// Configures both output lines. A line that can't be configured does not affect the other.
    /// \param bag holds `line2_...` and `line3_...` properties
    void setupGpio(property_bag const& bag);

    /// \name Capture
    /// \return 0, -1 no configured device (when stopping, also: no stream), -2 the command is missing,
    ///         -3 the stream channel was refused, -4 the command was refused
    /// @{
    int ExStartCapture();
    int ExStopCapture();
    /// @}

    /// \name Tone curve (tone_curve.cpp)
    /// A result of 0 is success. Failures return a code that names the step and log a warning.
    /// @{

    /// \return 0, -1 no configured device, -4 the camera refused the mode
    int ExPropertySetLUTMode(jai_lut_gamma_state mode);
    /// \return the camera's mode, `lg_error`: it can't be read
    jai_lut_gamma_state ExPropertyGetLUTMode();
    /// Writes one LUT entry of the selected channel.
    /// \return 0, -1 no configured device, -2 a feature is missing (not logged), -4 the camera refused index or value
    int ExPropertySetLUTValue(int index, int value);
    /// Selects the channel for `ExPropertySetLUTValue`.
    /// \param channel 0 red, 1 green, 2 blue
    /// \param channels number of channels; with less than 2 there is nothing to select
    /// \return 0, -1 no configured device, -2 the selector is missing, -4 the camera refused the channel
    int ExPropertySetLUTChannel(int channel, int channels);
    /// Reads the gamma values that the camera offers, once, into `gammaValues`.
    /// \param min receives the first of them; may be null
    /// \param max receives the last of them; may be null
    /// \return 0, 1 no LUT mode, -2 no gamma feature, -3, -5, -7, -9 the entries can't be read or converted
    int ExPropertyGetGammaRange(float* min, float* max);
    /// Switches to gamma mode and sets the nearest gamma that the camera offers.
    /// \return 0, -1 no LUT mode, -2 no gamma feature, -3 no value is near enough, -4 gamma mode was refused,
    ///         -5 no range, -6 out of range, -7 the values are unknown, -8 the camera refused the value
    int ExPropertySetGamma(float gamma);
    /// \param gamma receives the camera's gamma; unchanged while the camera applies none
    /// \return 0, 1 no LUT mode, -1 no range, -2 no gamma feature, -3 the value can't be read
    int ExPropertyGetGamma(float& gamma);
    /// @}

    PvDeviceInfo const* const info;
    device_handle device;
    stream_handle stream;
    PvGenParameterArray* deviceParams = nullptr;  ///< null until the camera is configured
    std::unique_ptr<sensor_like> sensor;
    std::unique_ptr<grabcontrol_like> grabControl;
    std::unique_ptr<gpio_like> gpioLine2;
    std::unique_ptr<gpio_like> gpioLine3;
    frame_rate_param frameRate;
    std::vector<float> gammaValues;  ///< values of the gamma feature's entries, in their order
    char gammaFeatureName[32] = "JAIGamma";
    float gammaMin = 0.0F;  ///< first of `gammaValues`
    float gammaMax = 0.0F;  ///< last of `gammaValues`
    bool gammaRangeKnown = false;

private:
    int readGammaValues(PvGenEnum& feature);
    int findGammaEntry(float gamma) const;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
