#include "aravis_result.hpp"

#include <cstdint>

namespace openpv {
namespace {

uint32_t code_of_device_error(int code) {
    switch (code) {
        case ARV_DEVICE_ERROR_FEATURE_NOT_FOUND:
        case ARV_DEVICE_ERROR_NOT_FOUND:
        case ARV_DEVICE_ERROR_NO_STREAM_CHANNEL:
            return PvResult::Code::NOT_FOUND;
        case ARV_DEVICE_ERROR_NOT_CONNECTED:
        case ARV_DEVICE_ERROR_NOT_CONTROLLER:
            return PvResult::Code::NOT_CONNECTED;
        case ARV_DEVICE_ERROR_TIMEOUT:
            return PvResult::Code::TIMEOUT;
        case ARV_DEVICE_ERROR_INVALID_PARAMETER:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_PARAMETER:
            return PvResult::Code::INVALID_PARAMETER;
        case ARV_DEVICE_ERROR_WRONG_FEATURE:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_NOT_IMPLEMENTED:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_ADDRESS:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_WRITE_PROTECT:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_ACCESS_DENIED:
            return PvResult::Code::NOT_SUPPORTED;
        default:
            return PvResult::Code::GENERIC_ERROR;
    }
}

uint32_t code_of_genicam_error(int code) {
    switch (code) {
        case ARV_GC_ERROR_NODE_NOT_FOUND:
        case ARV_GC_ERROR_ENUM_ENTRY_NOT_FOUND:
            return PvResult::Code::NOT_FOUND;
        case ARV_GC_ERROR_OUT_OF_RANGE:
            return PvResult::Code::INVALID_PARAMETER;
        case ARV_GC_ERROR_READ_ONLY:
            return PvResult::Code::NOT_SUPPORTED;
        default:
            return PvResult::Code::GENERIC_ERROR;
    }
}

uint32_t code_of(GError const& error) {
    if (error.domain == ARV_DEVICE_ERROR) {
        return code_of_device_error(error.code);
    }
    if (error.domain == ARV_GC_ERROR) {
        return code_of_genicam_error(error.code);
    }
    return PvResult::Code::GENERIC_ERROR;
}

}  // namespace

PvResult to_result(std::string const& what, GError const* error) {
    return error == nullptr ? PvResult() : to_failure(what, error);
}

PvResult to_failure(std::string const& what, GError const* error) {
    if (error == nullptr || error->message == nullptr) {
        return {PvResult::Code::GENERIC_ERROR, (what + ": no reason was given.").c_str()};
    }
    return {code_of(*error), (what + ": " + error->message + ".").c_str()};
}

}  // namespace openpv
