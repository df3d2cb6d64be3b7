#include <PvGenString.h>

#include <string>

#include "PvGenParameter_impl.hpp"

PvResult PvGenString::GetValue(PvString& value) {
    std::string text;
    PvResult const result = impl_->get_string(text);
    if (result.IsOK()) {
        value = text.c_str();
    }
    return result;
}
