#include "pipeline/pipeline_sink.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "host_log.hpp"
#include "pipeline/frame_caps.hpp"
#include "pipeline/pipeline_text.hpp"
#include "pipeline/running_pipeline.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint64_t us = 1000;  ///< in ns

std::string seconds_text(std::chrono::duration<double> time) {
    std::string text = std::to_string(time.count());
    text.erase(text.find_last_not_of('0') + 1);
    return (text.ends_with('.') ? text.substr(0, text.size() - 1) : text) + " s";
}

/// A file that is there is somebody's recording. Sockets and devices are there to be written to.
void refuse_to_overwrite(running_pipeline const& pipeline) {
    for (auto const& file : pipeline.files()) {
        std::error_code error;
        if (std::filesystem::is_regular_file(file, error) && std::filesystem::file_size(file, error) > 0) {
            throw std::runtime_error(file.string() +
                                     " is there already, and the pipeline would write over it; {n} in its name counts"
                                     " how often the pipeline has begun");
        }
    }
}

}  // namespace

pipeline_sink::pipeline_sink(settings chosen, std::function<std::uint32_t()> period_us)
    : chosen_(std::move(chosen)), period_us_(std::move(period_us)) {
    refuse_to_overwrite(*put_together(1));
}

pipeline_sink::~pipeline_sink() = default;

std::unique_ptr<running_pipeline> pipeline_sink::put_together(std::uint64_t start) const {
    return std::make_unique<running_pipeline>(pipeline_text(chosen_.text, chosen_.directory, start));
}

std::size_t pipeline_sink::keep(frame_view const& frame) {
    std::lock_guard const lock(mutex_);
    geometry const wanted{.width = frame.record.width, .height = frame.record.height, .format = frame.record.format};
    if (running_ != nullptr && wanted != of_) {
        end_for(wanted);
    }
    if (running_ == nullptr) {
        begin(frame.record, wanted);
    }
    // Times of a pipeline never go back, even where the host's clock did; the time of day with the frame is its own.
    std::uint64_t const earliest = pushed_ ? last_from_begin_ + 1 : 0;
    std::uint64_t const taken = std::max(frame.record.timestamp_us, first_timestamp_us_) - first_timestamp_us_;
    running_pipeline::frame_time const when{.from_begin = std::max(taken * us, earliest),
                                            .since_1970 = frame.record.timestamp_us * us,
                                            .duration = period_us_() * us};
    try {
        running_->push(frame, when, [this] { return out_of_patience(); });
    } catch (std::runtime_error const& error) {
        if (running_->failed()) {
            fail(error.what());
        }
        throw;
    }
    pushed_ = true;
    last_push_ = clock::now();
    last_from_begin_ = when.from_begin;
    return 0;
}

void pipeline_sink::begin(frame_record const& first, geometry const& wanted) {
    if (!failure_.empty() && clock::now() < next_start_) {
        throw std::runtime_error(failure_);
    }
    try {
        auto next = put_together(starts_ + 1);
        refuse_to_overwrite(*next);
        ++starts_;
        next->begin(caps_of(first, period_us_()));
        running_ = std::move(next);
    } catch (std::runtime_error const& error) {
        fail(error.what());
    }
    of_ = wanted;
    first_timestamp_us_ = first.timestamp_us;
    pushed_ = false;
    log_info(std::string("the pipeline begins") + (starts_ > 1 ? " again" : "") + " with frames of " +
             caps_of(first, period_us_()));
    failure_.clear();
}

/// Frames are refused until it may begin again; the message tells so once.
void pipeline_sink::fail(std::string const& why) {
    running_.reset();
    if (failure_ != why) {
        log_error("pipeline: " + why + "; it is begun again every " + seconds_text(chosen_.retry_interval));
    }
    failure_ = why;
    next_start_ = clock::now() + std::chrono::duration_cast<clock::duration>(chosen_.retry_interval);
    throw std::runtime_error(why);
}

void pipeline_sink::end_for(geometry const& wanted) {
    log_warning("the pipeline ends and begins again: frames have " + std::to_string(wanted.width) + " x " +
                std::to_string(wanted.height) + " pixels of " + std::string(wanted.format->codec) + " now");
    end_running();
}

void pipeline_sink::end_running() {
    if (running_ == nullptr) {
        return;
    }
    try {
        if (!running_->finish(chosen_.longest_end)) {
            all_ended_ = false;
            log_error("the pipeline has not come to its end within " + seconds_text(chosen_.longest_end) +
                      "; what it writes may lack its last frames");
        }
    } catch (std::runtime_error const& error) {
        all_ended_ = false;
        log_error(std::string("pipeline: ") + error.what());
    }
    running_.reset();
}

void pipeline_sink::hurry() {
    hurried_ = clock::now();
}

/// A pipeline that goes on taking frames, however slowly, is waited for as a slow disk is.
bool pipeline_sink::out_of_patience() const {
    clock::time_point const hurried = hurried_;
    return hurried != clock::time_point() && clock::now() > std::max(hurried, last_push_) + chosen_.longest_end;
}

bool pipeline_sink::finish() {
    std::lock_guard const lock(mutex_);
    if (!std::exchange(finished_, true)) {
        end_running();
    }
    return all_ended_ && failure_.empty();
}

}  // namespace mediagrabber
