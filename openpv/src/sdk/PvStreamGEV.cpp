// SPDX-License-Identifier: MIT
#include <PvStreamGEV.h>

#include "net/ipv4_address.hpp"
#include "sdk/PvStream_impl.hpp"

uint16_t PvStreamGEV::GetLocalPort() const {
    return impl_->destination.load().port;
}
PvString PvStreamGEV::GetLocalIPAddress() const {
    return to_text(impl_->destination.load().address).c_str();
}
