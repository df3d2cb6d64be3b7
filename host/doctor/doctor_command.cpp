#include "doctor/doctor_command.hpp"

#include <algorithm>
#include <vector>

#include "configuration_file.hpp"
#include "doctor/diagnosis.hpp"
#include "doctor/disk_speed.hpp"
#include "doctor/machine.hpp"

namespace mediagrabber {

namespace {

constexpr std::size_t measured_bytes = std::size_t{256} << 20U;  ///< more than a disk's own memory hides

char const* word_for(verdict judged) {
    switch (judged) {
        case verdict::good:
            return "good   ";
        case verdict::advice:
            return "advice ";
        case verdict::bad:
            return "BAD    ";
        default:
            return "unknown";
    }
}

void print(std::ostream& out, finding const& one) {
    out << word_for(one.judged) << "  " << one.what << ": " << one.found << '\n';
    if (one.judged != verdict::good) {
        out << "         wanted: " << one.wanted << "\n         " << one.command << '\n';
    }
}

/// The nearest directory that is there: the one for a recording is made when it begins.
std::filesystem::path existing(std::filesystem::path directory) {
    directory = std::filesystem::absolute(directory);
    while (!std::filesystem::is_directory(directory) && directory.has_relative_path()) {
        directory = directory.parent_path();
    }
    return directory;
}

}  // namespace

exit_status doctor_command(doctor_options const& options, std::ostream& out) {
    configuration const configured =
        options.configuration.empty() ? configuration() : load_configuration(options.configuration).values;
    demand const asked = demand_of(configured);
    auto findings = diagnose(examine_machine(options.root, options.interface), asked);
    if (configured.output != output_format::none) {
        auto const directory =
            existing(options.directory.empty() ? std::filesystem::path(configured.directory) : options.directory);
        findings.push_back(judge_disk(measure_disk(directory, measured_bytes), asked, directory.string()));
    }
    for (finding const& one : findings) {
        print(out, one);
    }
    auto const bad = std::ranges::count(findings, verdict::bad, &finding::judged);
    out << (bad == 0 ? "Nothing here would lose frames.\n"
                     : std::to_string(bad) + " of these would lose frames or falsify their times.\n");
    return bad == 0 ? exit_status::success : exit_status::unfit;
}

}  // namespace mediagrabber
