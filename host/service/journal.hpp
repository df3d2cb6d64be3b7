#pragma once

namespace mediagrabber {

/// Whether what is written to a descriptor goes to systemd's journal, as a service's output does.
bool goes_to_journal(int descriptor);

}  // namespace mediagrabber
