// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

/// A text in Prometheus's exposition format, version 0.0.4, read strictly.
class exposition {
public:
    using labels = std::map<std::string, std::string>;

    struct sample {
        std::string name;
        labels with;
        double value = 0.0;
    };

    struct family {
        std::string help;
        std::string type;
        std::vector<sample> samples;
    };

    /// \throws std::runtime_error with the line that breaks a rule
    explicit exposition(std::string const& text);

    std::map<std::string, family> const& families() const { return families_; }
    /// Names that a query may use.
    bool contains(std::string const& name) const;
    /// \throws std::out_of_range if the sample does not exist
    double value(std::string const& name, labels const& with) const;

private:
    void read_comment(std::string const& line);
    void read_sample(std::string const& line);
    void check_family(std::string const& name) const;
    void check_histogram(family const& one, std::string const& name) const;

    std::map<std::string, family> families_;
    std::string current_;
};
