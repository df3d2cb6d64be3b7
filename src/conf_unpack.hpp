#pragma once
/// \file
/// Copies what the host has configured into a bag. Values that the host marks as not set leave their key absent; keys
/// that are in the bag already are never removed. Nothing here throws.

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

void Conf__UnpackAutoFn(property_bag& bag);          ///< target and limits of the automatic level control
void Conf__UnpackManualGainDb(property_bag& bag);    ///< gain set by hand
void Conf__UnpackManualExposure(property_bag& bag);  ///< exposure time set by hand
void Conf__UnpackSensor(property_bag& bag);          ///< region of interest
void Conf__UnpackGpio(property_bag& bag);            ///< output lines 2 and 3

}  // namespace Vorn::Support::MediaGrabber::Jai
