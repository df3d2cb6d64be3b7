#pragma once
/// \file
/// A kernel on the script's camera, for the tests of the kernel's steps.

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
    kernel_fixture() { system_.Find(); }

    PvDeviceInfo const* info() const { return system_.GetInterface(0)->GetDeviceInfo(0); }

    /// The connected camera, made when it is first asked for: a test first writes the script.
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
