// SPDX-License-Identifier: MIT
#pragma once

namespace mediagrabber {

/// Whether a descriptor is connected to the systemd journal, as the output of a service is.
bool goes_to_journal(int descriptor);

}  // namespace mediagrabber
