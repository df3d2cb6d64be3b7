// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Copies the host's configuration into a property bag, from which the feature blocks read it.
///
/// A value that the host marks as not configured leaves its key absent. Keys that are already in the bag are never
/// removed. These functions do not throw; they log unsupported values as warnings.

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

/// \name Unpacking
/// \param bag receives the properties
/// @{
void Conf__UnpackAutoFn(property_bag& bag);          ///< brightness target, limits of automatic gain and exposure
void Conf__UnpackManualGainDb(property_bag& bag);    ///< manual gain
void Conf__UnpackManualExposure(property_bag& bag);  ///< manual exposure time
void Conf__UnpackSensor(property_bag& bag);          ///< region of interest
void Conf__UnpackGpio(property_bag& bag);            ///< output lines 2 and 3
/// @}

}  // namespace Vorn::Support::MediaGrabber::Jai
