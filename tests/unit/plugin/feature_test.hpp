// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Fixture for the tests of parameters and feature blocks: the script's features without a `camera`.

#include <PvDevice.h>

#include "param_provider_like.hpp"
#include "plugin_test.hpp"

namespace plugin_test {

struct feature_fixture : plugin {
    /// Provides the features, or none if not `available`.
    struct test_provider final : Vorn::Support::MediaGrabber::Jai::param_provider_like {
        ~test_provider() override { PvDevice::Free(device); }
        PvGenParameterArray* getDevParams() override { return available ? device->GetParameters() : nullptr; }
        PvDevice* device = nullptr;
        bool available = true;
    };

    feature_fixture() {
        PvResult result;
        provider.device = PvDevice::CreateAndConnect("10.0.0.7", &result);
        support::journal().clear();
    }

    test_provider provider;
};

}  // namespace plugin_test
