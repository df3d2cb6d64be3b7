// SPDX-License-Identifier: MIT
#include <PvStreamGEV.h>

#include "sdk/PvStream_impl.hpp"

uint16_t PvStreamGEV::GetLocalPort() const {
    return impl_->local_port;
}
PvString PvStreamGEV::GetLocalIPAddress() const {
    return to_text(impl_->link->id().host).c_str();
}
