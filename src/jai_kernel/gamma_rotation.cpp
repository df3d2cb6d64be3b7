// SPDX-License-Identifier: MIT
#include "cam_proc.hpp"
#include "jai_camera/camera.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

constexpr double _S_sentinelTolerance = 0.001;  ///< within which a value counts as a sentinel, for both sentinels below
constexpr double _S_noGamma = -1.0;             ///< not configured
constexpr double _S_gammaOff = 1.0;             ///< no gamma
constexpr double _S_rangeTolerance = 0.01;      ///< by which a gamma may lie outside the camera's range
constexpr int32_t _S_rotateBy180 = 2;           ///< value of the host's rotation setting

bool _T_is(double value, double sentinel) {
    return value >= sentinel - _S_sentinelTolerance && value <= sentinel + _S_sentinelTolerance;
}

/// Stops capture for the lifetime of the object: the camera refuses some writes while it captures.
class capture_pause {
public:
    capture_pause(camera& cam, bool wanted) : cam_(wanted ? &cam : nullptr) {
        if (cam_ != nullptr) {
            cam_->ExStopCapture();
        }
    }
    ~capture_pause() {
        if (cam_ != nullptr) {
            cam_->ExStartCapture();
        }
    }
    capture_pause(capture_pause const&) = delete;
    capture_pause& operator=(capture_pause const&) = delete;

private:
    camera* cam_;
};

}  // namespace

void CCamProc::SetupCamGamma(camera* cam, bool restartCapture) {
    float const requested = MgGiMainCtx__GetGamma();
    double const gamma{requested};
    MG_LOG_I("Gamma settings handler entry val: Gamma %f\n", gamma);
    if (_T_is(gamma, _S_noGamma)) {
        MG_LOG_I("  Gamma config is skipped\n");
        return;
    }
    float min = 0.0F;
    float max = 0.0F;
    if (cam->ExPropertyGetGammaRange(&min, &max) != 0) {
        MG_LOG_W("  Gamma is not supported for this device");
        return;
    }
    MG_LOG_I("  cur Gamma val is %f (min %f, max %f)\n", double{currentGamma}, double{min}, double{max});
    if (min > requested) {
        MG_LOG_W("  asked Gamma val %f is not allowed, skipped\n", gamma);
        return;
    }
    if (_T_is(gamma, _S_gammaOff)) {
        if (cam->ExPropertyGetLUTMode() == lg_gamma) {
            capture_pause const pause(*cam, restartCapture);
            cam->ExPropertySetLUTMode(lg_off);
        }
        MG_LOG_I("  Gamma control is turned off\n");
        return;
    }
    if (double{min} - _S_rangeTolerance > gamma) {
        MG_LOG_W("  asked Gamma val %f is lower than min %f, skipped\n", gamma, double{min});
        return;
    }
    if (gamma > double{max} + _S_rangeTolerance) {
        MG_LOG_W("  asked Gamma val %f exceeds max %f, skipped\n", gamma, double{max});
        return;
    }
    capture_pause const pause(*cam, restartCapture);
    if (cam->ExPropertySetGamma(requested) != 0) {
        return;
    }
    float readBack = 0.0F;  // read for its log line only
    cam->ExPropertyGetGamma(readBack);
    MG_LOG_I("  new Gamma val is %f\n", gamma);
    currentGamma = requested;
}

void CCamProc::ProcParametrizeCamRotate(camera* /*cam*/) {
    int32_t const rotate = MgGiMainCtx__GetRotate();
    MG_LOG_I("Rotate settings handler entry val: Rotate %i\n", rotate);
    if (rotate == 0) {
        MG_LOG_I("  Rotate config is skipped\n");
        return;
    }
    MG_LOG_I("  cur swRotate val is: %i\n", int{swRotate});
    swRotate = rotate == _S_rotateBy180 ? 1 : 0;
    MG_LOG_I("  new swRotate val is: %i\n", int{swRotate});
}

}  // namespace Vorn::Support::MediaGrabber::Jai
