// SPDX-License-Identifier: MIT
#include "cli/set_command.hpp"

namespace mediagrabber {

exit_status set_command(set_options const& options, std::ostream& out, std::ostream& errors) {
    change_request request;
    request.timeout_s = options.timeout_s;
    request.restart = options.restart;
    for (auto const& text : options.settings) {
        request.settings.push_back(parse_setting(text));
    }
    return send_request(control_socket_of(options.recording), request, false, out, errors);
}

}  // namespace mediagrabber
