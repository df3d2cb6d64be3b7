// SPDX-License-Identifier: MIT
#include "genicam/genicam_xml.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string_view>
#include <type_traits>
#include <utility>

namespace camsim {

namespace {

std::string escaped(std::string_view text) {
    std::string result;
    for (char const letter : text) {
        switch (letter) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result += letter;
        }
    }
    return result;
}

std::string hexadecimal(std::uint32_t value) {
    std::array<char, 16> text{};
    auto const [end, error] = std::to_chars(text.data(), text.data() + text.size(), value, 16);
    return "0x" + std::string(text.data(), end);
}

/// The shortest decimal representation that converts back to the same number.
std::string decimal(double value) {
    std::array<char, 32> text{};
    auto const [end, error] = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), end};
}

std::string decimal(std::int64_t value) {
    return std::to_string(value);
}

char const* name_of(visibility one) {
    constexpr std::array names{"Beginner", "Expert", "Guru", "Invisible"};
    return names[static_cast<std::size_t>(one)];
}

char const* name_of(access_mode one) {
    constexpr std::array names{"RO", "WO", "RW"};
    return names[static_cast<std::size_t>(one)];
}

char const* name_of(representation one) {
    constexpr std::array names{"", "IPV4Address"};
    return names[static_cast<std::size_t>(one)];
}

/// Writes indented elements. Children are written between open() and close().
class xml_text {
public:
    void open(std::string const& tag, std::string const& attributes = {}) {
        line("<" + tag + (attributes.empty() ? "" : " " + attributes) + ">");
        ++depth_;
    }
    void close(std::string const& tag) {
        --depth_;
        line("</" + tag + ">");
    }
    void element(std::string const& tag, std::string_view content) {
        line("<" + tag + ">" + escaped(content) + "</" + tag + ">");
    }
    void line(std::string const& text) { text_ += std::string(depth_ * 2, ' ') + text + "\n"; }
    std::string take() { return std::move(text_); }

private:
    std::string text_;
    std::size_t depth_ = 0;
};

/// Writes a port node: access to the camera's registers, or to the data of a chunk.
void write_port(xml_text& xml, std::string const& name, std::optional<std::uint32_t> chunk_id = std::nullopt) {
    xml.open("Port", "Name=\"" + name + "\" NameSpace=\"Standard\"");
    if (chunk_id) {
        xml.element("ChunkID", hexadecimal(*chunk_id).substr(2));  // the schema requires it without prefix
    }
    xml.close("Port");
}

/// Writes the nodes of one feature: its own, its register's, and those of variable limits.
class node_writer {
public:
    /// \param lock feature that locks others while the camera acquires; empty if the camera does not have it
    node_writer(xml_text& xml, placed_feature const& placed, std::string lock)
        : xml_(xml),
          placed_(placed),
          feature_(placed.declaration),
          register_name_(feature_.name + "Reg"),
          lock_(std::move(lock)) {}

    void write() const {
        std::visit(*this, feature_.kind);
        if (feature_.chunk_id) {
            write_port(xml_, chunk_port(), *feature_.chunk_id);
        }
    }

    void operator()(integer_kind const& kind) const {
        open("Integer");
        xml_.element("pValue", register_name_);
        write_limit("Min", kind.minimum);
        write_limit("Max", kind.maximum);
        if (kind.increment != 1) {
            xml_.element("Inc", decimal(kind.increment));
        }
        if (!feature_.unit.empty()) {
            xml_.element("Unit", feature_.unit);
        }
        if (kind.display != representation::none) {
            xml_.element("Representation", name_of(kind.display));
        }
        close("Integer");
        write_integer_register(feature_.standard ? feature_.standard->bytes : kind.bytes);
        write_limit_register("Min", kind.minimum, placed_.min_address);
        write_limit_register("Max", kind.maximum, placed_.max_address);
    }

    void operator()(float_kind const& kind) const {
        open("Float");
        xml_.element("pValue", register_name_);
        write_limit("Min", kind.minimum);
        write_limit("Max", kind.maximum);
        if (!feature_.unit.empty()) {
            xml_.element("Unit", feature_.unit);
        }
        close("Float");
        open_register("FloatReg", register_name_, placed_.address, kind.bytes);
        xml_.element("Endianess", byte_order());
        xml_.close("FloatReg");
        write_limit_register("Min", kind.minimum, placed_.min_address);
        write_limit_register("Max", kind.maximum, placed_.max_address);
    }

    void operator()(enumeration_kind const& kind) const {
        open("Enumeration");
        for (enumeration_entry const& entry : kind.entries) {
            xml_.open("EnumEntry", "Name=\"" + entry.name + "\" NameSpace=\"Standard\"");
            xml_.element("Value", decimal(entry.value));
            xml_.close("EnumEntry");
        }
        xml_.element("pValue", register_name_);
        close("Enumeration");
        write_integer_register(4);
    }

    void operator()(boolean_kind const&) const {
        open("Boolean");
        xml_.element("pValue", register_name_);
        xml_.element("OnValue", "1");
        xml_.element("OffValue", "0");
        close("Boolean");
        write_integer_register(4);
    }

    void operator()(command_kind const& kind) const {
        open("Command");
        xml_.element("pValue", register_name_);
        xml_.element("CommandValue", std::to_string(kind.value));
        close("Command");
        write_integer_register(4);
    }

    void operator()(string_kind const& kind) const {
        open_register("StringReg", feature_.name, placed_.address, kind.length);
        xml_.close("StringReg");
    }

private:
    void open(std::string const& tag) const {
        xml_.open(tag, "Name=\"" + feature_.name + "\" NameSpace=\"Standard\"");
        write_common_elements();
    }

    void write_common_elements() const {
        xml_.element("ToolTip", feature_.tooltip);
        xml_.element("DisplayName", feature_.name);
        xml_.element("Visibility", name_of(feature_.visible_to));
        if (!feature_.available_with.empty()) {
            xml_.element("pIsAvailable", feature_.available_with);
        }
        if (feature_.locked_while_acquiring && !lock_.empty()) {
            xml_.element("pIsLocked", lock_);
        }
        if (feature_.access == access_mode::read_only) {
            xml_.element("ImposedAccessMode", "RO");
        }
    }

    void close(std::string const& tag) const {
        for (std::string const& selected : feature_.selects) {
            xml_.element("pSelected", selected);
        }
        xml_.close(tag);
    }

    template <typename number_type>
    void write_limit(std::string const& which, limit<number_type> const& one) const {
        if (is_variable(one)) {
            xml_.element("p" + which, feature_.name + which + "LimitReg");
        } else {
            xml_.element(which, decimal(value_of(one)));
        }
    }

    template <typename number_type>
    void write_limit_register(std::string const& which, limit<number_type> const& one, std::uint32_t address) const {
        if (!is_variable(one)) {
            return;
        }
        bool const is_integer = std::is_integral_v<number_type>;
        std::string const tag = is_integer ? "IntReg" : "FloatReg";
        xml_.open(tag, "Name=\"" + feature_.name + which + "LimitReg\" NameSpace=\"Custom\"");
        xml_.element("Visibility", name_of(visibility::invisible));
        write_register_elements(address, 8, access_mode::read_only, !feature_.invalidated_by.empty());
        if (is_integer) {
            xml_.element("Sign", "Signed");
        }
        xml_.element("Endianess", "BigEndian");
        xml_.close(tag);
    }

    void write_integer_register(std::uint32_t bytes) const {
        bool const masked = feature_.standard && feature_.standard->bits;
        std::string const tag = masked ? "MaskedIntReg" : "IntReg";
        open_register(tag, register_name_, placed_.address, bytes);
        if (masked) {
            auto const [first, last] = *feature_.standard->bits;
            if (first == last) {
                xml_.element("Bit", std::to_string(first));
            } else {
                // Big-endian registers count bits from the most significant one.
                xml_.element("LSB", std::to_string(last));
                xml_.element("MSB", std::to_string(first));
            }
        }
        xml_.element("Sign", "Unsigned");
        xml_.element("Endianess", byte_order());
        xml_.close(tag);
    }

    /// Opens the register of the feature's value.
    void open_register(std::string const& tag, std::string const& name, std::uint32_t address,
                       std::uint32_t bytes) const {
        bool const is_feature = name == feature_.name;
        xml_.open(tag, "Name=\"" + name + "\" NameSpace=\"" + (is_feature ? "Standard" : "Custom") + "\"");
        if (is_feature) {
            write_common_elements();
        } else {
            xml_.element("Visibility", name_of(visibility::invisible));
        }
        write_register_elements(address, bytes, feature_.access, feature_.cachable);
    }

    void write_register_elements(std::uint32_t address, std::uint32_t bytes, access_mode access, bool cachable) const {
        xml_.element("Address", feature_.chunk_id ? "0x0" : hexadecimal(address));
        bool const selected = feature_.standard && feature_.standard->stride != 0;
        if (selected) {
            xml_.line("<pIndex Offset=\"" + std::to_string(feature_.standard->stride) + "\">" +
                      feature_.standard->selector + "</pIndex>");
        }
        xml_.element("Length", std::to_string(bytes));
        xml_.element("AccessMode", name_of(access));
        xml_.element("pPort", feature_.chunk_id ? chunk_port() : "Device");
        xml_.element("Cachable", cachable ? "WriteThrough" : "NoCache");
        if (feature_.polling_time_ms) {
            xml_.element("PollingTime", std::to_string(*feature_.polling_time_ms));
        }
        for (std::string const& source : feature_.invalidated_by) {
            xml_.element("pInvalidator", source);
        }
        if (selected) {
            xml_.element("pInvalidator", feature_.standard->selector);
        }
    }

    char const* byte_order() const { return feature_.chunk_id ? "LittleEndian" : "BigEndian"; }
    std::string chunk_port() const { return feature_.name + "Port"; }

    xml_text& xml_;
    placed_feature const& placed_;
    feature const& feature_;
    std::string register_name_;
    std::string lock_;
};

void write_categories(xml_text& xml, std::vector<placed_feature> const& features) {
    std::vector<std::string> categories;
    for (placed_feature const& one : features) {
        if (std::ranges::find(categories, one.declaration.category) == categories.end()) {
            categories.push_back(one.declaration.category);
        }
    }
    xml.open("Category", "Name=\"Root\" NameSpace=\"Standard\"");
    for (std::string const& category : categories) {
        xml.element("pFeature", category);
    }
    xml.close("Category");
    for (std::string const& category : categories) {
        xml.open("Category", "Name=\"" + category + "\" NameSpace=\"Standard\"");
        for (placed_feature const& one : features) {
            if (one.declaration.category == category) {
                xml.element("pFeature", one.declaration.name);
            }
        }
        xml.close("Category");
    }
}

/// GenApi requires identifiers: letters, digits and underscores.
std::string identifier(std::string text) {
    std::ranges::replace_if(
        text, [](unsigned char letter) { return std::isalnum(letter) == 0; }, '_');
    return text;
}

}  // namespace

std::string genicam_xml(std::string const& vendor, std::string const& model,
                        std::vector<placed_feature> const& features) {
    xml_text xml;
    xml.line("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    xml.open("RegisterDescription", "ModelName=\"" + identifier(model) + "\" VendorName=\"" + identifier(vendor) +
                                        "\" ToolTip=\"Simulated GigE Vision camera\" StandardNameSpace=\"GEV\""
                                        " SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\""
                                        " MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\""
                                        " ProductGuid=\"6B1B1C0A-7C1E-4E0B-9C55-4D1A0C8F7D11\""
                                        " VersionGuid=\"0F3B8A52-2D0A-4C0B-8E8E-5B0A7B1C9E21\""
                                        " xmlns=\"http://www.genicam.org/GenApi/Version_1_1\""
                                        " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
                                        " xsi:schemaLocation=\"http://www.genicam.org/GenApi/Version_1_1"
                                        " http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd\"");
    write_categories(xml, features);
    constexpr char const* lock = "TLParamsLocked";
    bool const has_lock =
        std::ranges::any_of(features, [&](placed_feature const& one) { return one.declaration.name == lock; });
    for (placed_feature const& one : features) {
        node_writer(xml, one, has_lock ? lock : "").write();
    }
    write_port(xml, "Device");
    xml.close("RegisterDescription");
    return xml.take();
}

}  // namespace camsim
