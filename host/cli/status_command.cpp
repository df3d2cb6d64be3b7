// SPDX-License-Identifier: MIT
#include "cli/status_command.hpp"

namespace mediagrabber {

exit_status status_command(query_options const& options, std::ostream& out, std::ostream& errors) {
    change_request request;
    request.asks_status = true;
    return send_request(control_socket_of(options.recording), request, options.json, out, errors);
}

exit_status get_command(query_options const& options, std::ostream& out, std::ostream& errors) {
    change_request request;
    request.keys = options.keys;
    return send_request(control_socket_of(options.recording), request, options.json, out, errors);
}

}  // namespace mediagrabber
