// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Fixture for the tests of the kernel's steps: a kernel and the script's camera.

#include <PvSystem.h>

#include "jai_camera/camera.hpp"
#include "jai_factory/buffer_factory.hpp"
#include "jai_kernel/cam_proc.hpp"
#include "plugin_test.hpp"

namespace plugin_test {

using Vorn::Support::MediaGrabber::Jai::buffer_factory;
using Vorn::Support::MediaGrabber::Jai::camera;
using Vorn::Support::MediaGrabber::Jai::CCamProc;

struct kernel_fixture : plugin {
    using dyn_lut_mode = Vorn::Support::MediaGrabber::Jai::dyn_lut_mode;
    using dyn_lut_step = Vorn::Support::MediaGrabber::Jai::dyn_lut_step;
    using signal_code = mg_host_api::signal_code;

    kernel_fixture() { system_.Find(); }

    PvDeviceInfo const* info() const { return system_.GetInterface(0)->GetDeviceInfo(0); }

    /// \return the camera, connected at the first call: write the script before
    camera& device() {
        if (camera_ == nullptr) {
            camera_ = std::make_unique<camera>(info());
            camera_->deviceParams = camera_->device->GetParameters();
            support::journal().clear();
        }
        return *camera_;
    }
    void disconnect() { camera_.reset(); }

    static constexpr char tag[] = "MG_JAI_PROC";

    buffer_factory factory;
    CCamProc kernel;

private:
    PvSystem system_;
    std::unique_ptr<camera> camera_;
};

}  // namespace plugin_test
