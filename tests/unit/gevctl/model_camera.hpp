// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Features of a camera whose limits depend on each other.

#include <functional>
#include <string>

#include "fake_registers.hpp"
#include "features/feature_access.hpp"
#include "report/failure.hpp"

/// Registers 0x100 Width, 0x104 OffsetX, 0x108 GainSelector, 0x10C Gain (of both selections, 16 bytes apart), 0x200
/// TriggerMode, 0x204 TriggerDelay, 0x208 Locked, 0x20C Name (16 bytes), 0x220 Ready, 0x224 Start, 0x228 ReverseX,
/// 0x22C Exposure (float), 0x230 Password (write-only).
inline std::string model_xml() {
    auto const reg = [](std::string const& name, std::string const& address, std::string const& more = {}) {
        return element("IntReg", name + "Reg", register_parts(address) + more);
    };
    return whole_xml(
        element("Category", "Root", "<pFeature>Image</pFeature><pFeature>Analog</pFeature><pFeature>Root</pFeature>") +
        element("Category", "Image",
                "<pFeature>Width</pFeature><pFeature>OffsetX</pFeature><pFeature>ReverseX</pFeature>"
                "<pFeature>Trigger</pFeature><pFeature>Width</pFeature>") +
        element("Category", "Trigger",
                "<pFeature>TriggerMode</pFeature><pFeature>TriggerDelay</pFeature><pFeature>Start</pFeature>") +
        element("Category", "Analog",
                "<pFeature>GainSelector</pFeature><pFeature>Gain</pFeature><pFeature>Name</pFeature>"
                "<pFeature>Exposure</pFeature>") +
        reg("Width", "0x100") + reg("OffsetX", "0x104") + reg("GainSelector", "0x108") + reg("TriggerMode", "0x200") +
        reg("TriggerDelay", "0x204") + reg("Locked", "0x208") + reg("ReverseX", "0x228") + reg("Start", "0x224") +
        element("IntReg", "GainReg", register_parts("0x10C") + "<pIndex Offset=\"16\">GainSelector</pIndex>") +
        element("IntSwissKnife", "WidthMax",
                "<pVariable Name=\"OFFSET\">OffsetXReg</pVariable><Formula>2464 - OFFSET</Formula>") +
        element("IntSwissKnife", "OffsetXMax",
                "<pVariable Name=\"WIDTH\">WidthReg</pVariable><Formula>2464 - WIDTH</Formula>") +
        element(
            "Integer", "Width",
            "<ToolTip>Width of the image</ToolTip><Visibility>Beginner</Visibility><Streamable>Yes</Streamable>"
            "<pIsLocked>LockedReg</pIsLocked><pValue>WidthReg</pValue><Min>16</Min><pMax>WidthMax</pMax><Inc>8</Inc>"
            "<Unit>px</Unit>") +
        element("Integer", "OffsetX",
                "<Visibility>Expert</Visibility><Streamable>Yes</Streamable><pValue>OffsetXReg</pValue><Min>0</Min>"
                "<pMax>OffsetXMax</pMax><Inc>8</Inc>") +
        element("Boolean", "ReverseX", "<Streamable>Yes</Streamable><pValue>ReverseXReg</pValue>") +
        element(
            "Enumeration", "TriggerMode",
            "<EnumEntry Name=\"Off\"><Value>0</Value></EnumEntry><EnumEntry Name=\"On\"><Value>1</Value></EnumEntry>"
            "<pValue>TriggerModeReg</pValue>") +
        element("IntSwissKnife", "IsTriggered",
                "<pVariable Name=\"MODE\">TriggerMode</pVariable><Formula>MODE = 1</Formula>") +
        element("Integer", "TriggerDelay",
                "<Visibility>Guru</Visibility><pIsAvailable>IsTriggered</pIsAvailable><pValue>TriggerDelayReg</pValue>"
                "<Min>0</Min><Max>1000</Max><Representation>HexNumber</Representation>") +
        element("Enumeration", "GainSelector",
                "<EnumEntry Name=\"AnalogAll\"><Value>0</Value></EnumEntry>"
                "<EnumEntry Name=\"DigitalAll\"><Value>1</Value></EnumEntry><pValue>GainSelectorReg</pValue>"
                "<pSelected>Gain</pSelected>") +
        element("Integer", "Gain", "<Streamable>Yes</Streamable><pValue>GainReg</pValue><Min>0</Min><Max>16</Max>") +
        element("StringReg", "Name", register_parts("0x20C", 16)) +
        element("FloatReg", "Exposure", register_parts("0x22C")) + reg("Password", "0x230") +
        element("Integer", "Password", "<ImposedAccessMode>WO</ImposedAccessMode><pValue>PasswordReg</pValue>") +
        element("Command", "Start", "<pValue>StartReg</pValue><CommandValue>5</CommandValue>"));
}

/// A camera with a width of 2464 and an offset of 0.
struct model_camera {
    model_camera() { registers.put(0x100, 2464); }

    gevctl::feature_value read(std::string const& name) { return features.read(features.require(name)); }
    void write(std::string const& name, gevctl::feature_value const& value) {
        features.write(features.require(name), value);
    }

    fake_registers registers;
    int writes_prepared = 0;
    bool locked = false;  ///< writes are refused
    std::function<void()> on_refusal;
    gevctl::camera_features features{model_xml(), registers, [this] { prepare_write(); }};

private:
    void prepare_write() {
        ++writes_prepared;
        if (locked) {
            if (on_refusal) {
                on_refusal();
            }
            throw gevctl::failure(gevctl::exit_status::refused, "the camera is locked");
        }
    }
};

/// \return the message of the failure that `operation` throws; empty if it throws none
template <class function>
std::string message_of(function&& operation) {
    try {
        operation();
        return {};
    } catch (gevctl::failure const& error) {
        return error.what();
    }
}

/// \return the status of the failure that `operation` throws
template <class function>
gevctl::exit_status status_of(function&& operation) {
    try {
        operation();
        return gevctl::exit_status::success;
    } catch (gevctl::failure const& error) {
        return error.status();
    }
}
