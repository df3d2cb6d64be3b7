#pragma once

#include <memory>
#include <string>

#include "camera_options.hpp"
#include "ipv4.hpp"

namespace camsim {

/// A simulated GigE Vision camera: registers, description, control channel and stream, running on threads of their own.
class camera {
public:
    explicit camera(camera_options const& options);
    ~camera();
    camera(camera const&) = delete;
    camera& operator=(camera const&) = delete;

    void start();
    void stop();
    bool files_failed() const;

private:
    struct parts;
    std::unique_ptr<parts> parts_;
};

std::string describe(camera_options const& options);

}  // namespace camsim
