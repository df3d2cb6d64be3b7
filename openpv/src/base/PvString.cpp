// SPDX-License-Identifier: MIT
#include <PvString.h>

#include <cstdint>
#include <cstring>
#include <string>

struct PvString::impl {
    std::string text;
};

// `impl_` is null for an empty text, which therefore allocates nothing.
PvString::PvString() : impl_(nullptr) {}
PvString::PvString(char const* text) : impl_(text != nullptr && *text != '\0' ? new impl{text} : nullptr) {}
PvString::PvString(PvString const& other) : impl_(other.impl_ != nullptr ? new impl(*other.impl_) : nullptr) {}

PvString& PvString::operator=(PvString const& other) {
    if (this != &other) {
        impl* const copy = other.impl_ != nullptr ? new impl(*other.impl_) : nullptr;
        delete impl_;
        impl_ = copy;
    }
    return *this;
}

PvString::~PvString() {
    delete impl_;
}

char const* PvString::GetAscii() const {
    return impl_ != nullptr ? impl_->text.c_str() : "";
}
uint32_t PvString::GetLength() const {
    return impl_ != nullptr ? static_cast<uint32_t>(impl_->text.size()) : 0;
}

bool PvString::operator==(PvString const& other) const {
    return std::strcmp(GetAscii(), other.GetAscii()) == 0;
}
bool PvString::operator!=(PvString const& other) const {
    return !(*this == other);
}
