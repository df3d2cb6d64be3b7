// SPDX-License-Identifier: MIT
#include "pipeline/pipeline_sink.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "base/host_log.hpp"
#include "pipeline/frame_caps.hpp"
#include "pipeline/pipeline_text.hpp"
#include "pipeline/running_pipeline.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint64_t ns_per_us = 1000;

std::string seconds_text(std::chrono::duration<double> time) {
    std::string text = std::to_string(time.count());
    text.erase(text.find_last_not_of('0') + 1);
    return (text.ends_with('.') ? text.substr(0, text.size() - 1) : text) + " s";
}

/// Only regular files are protected; sockets and devices exist before they are written to.
void refuse_to_overwrite(running_pipeline const& pipeline) {
    for (auto const& file : pipeline.files()) {
        std::error_code error;
        if (std::filesystem::is_regular_file(file, error) && std::filesystem::file_size(file, error) > 0) {
            throw std::runtime_error(
                file.string() +
                " exists and the pipeline would overwrite it; use another directory, or {n} in the name,"
                " which counts the starts of the pipeline");
        }
    }
}

}  // namespace

pipeline_sink::pipeline_sink(settings chosen, std::function<std::uint32_t()> period_us)
    : chosen_(std::move(chosen)), period_us_(std::move(period_us)) {
    refuse_to_overwrite(*construct(1));
}

pipeline_sink::~pipeline_sink() = default;

std::unique_ptr<running_pipeline> pipeline_sink::construct(std::uint64_t start) const {
    return std::make_unique<running_pipeline>(pipeline_text(chosen_.text, chosen_.directory, start));
}

std::size_t pipeline_sink::write(frame_view const& frame) {
    std::lock_guard const lock(mutex_);
    geometry const wanted{.width = frame.record.width, .height = frame.record.height, .format = frame.record.format};
    if (running_ != nullptr && wanted != geometry_) {
        end_for(wanted);
    }
    if (running_ == nullptr) {
        start(frame.record, wanted);
    }
    // Presentation times must increase, even if the host clock was set back; the reference timestamp stays unchanged.
    std::uint64_t const earliest = pushed_ ? last_from_start_ + 1 : 0;
    std::uint64_t const taken = std::max(frame.record.timestamp_us, first_timestamp_us_) - first_timestamp_us_;
    running_pipeline::frame_time const when{.from_start = std::max(taken * ns_per_us, earliest),
                                            .since_1970 = frame.record.timestamp_us * ns_per_us,
                                            .duration = period_us_() * ns_per_us};
    try {
        running_->push(frame, when, [this] { return out_of_time(); });
    } catch (std::runtime_error const& error) {
        if (running_->failed()) {
            fail(error.what());
        }
        throw;
    }
    pushed_ = true;
    last_push_ = clock::now();
    last_from_start_ = when.from_start;
    return 0;
}

void pipeline_sink::start(frame_record const& first, geometry const& wanted) {
    if (!failure_.empty() && clock::now() < next_start_) {
        throw std::runtime_error(failure_);
    }
    try {
        auto next = construct(starts_ + 1);
        refuse_to_overwrite(*next);
        ++starts_;
        next->start(caps_of(first, period_us_()));
        running_ = std::move(next);
    } catch (std::runtime_error const& error) {
        fail(error.what());
    }
    geometry_ = wanted;
    first_timestamp_us_ = first.timestamp_us;
    pushed_ = false;
    log_info(std::string("pipeline ") + (starts_ > 1 ? "restarted" : "started") + " with caps " +
             caps_of(first, period_us_()));
    failure_.clear();
}

/// Frames are refused until the next attempt; the same failure is logged once.
void pipeline_sink::fail(std::string const& why) {
    running_.reset();
    if (failure_ != why) {
        log_error("pipeline: " + why + "; retrying every " + seconds_text(chosen_.retry_interval));
    }
    failure_ = why;
    next_start_ = clock::now() + std::chrono::duration_cast<clock::duration>(chosen_.retry_interval);
    throw std::runtime_error(why);
}

void pipeline_sink::end_for(geometry const& wanted) {
    log_warning("restarting the pipeline: frames are now " + std::to_string(wanted.width) + " x " +
                std::to_string(wanted.height) + " " + std::string(wanted.format->name));
    end_running();
}

void pipeline_sink::end_running() {
    if (running_ == nullptr) {
        return;
    }
    try {
        if (!running_->finish(chosen_.max_end_time)) {
            all_ended_ = false;
            log_error("the pipeline did not finish within " + seconds_text(chosen_.max_end_time) +
                      "; its output may lack the last frames");
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

/// A pipeline that still accepts frames, however slowly, is waited for like a slow disk.
bool pipeline_sink::out_of_time() const {
    clock::time_point const hurried = hurried_;
    return hurried != clock::time_point() && clock::now() > std::max(hurried, last_push_) + chosen_.max_end_time;
}

bool pipeline_sink::finish() {
    std::lock_guard const lock(mutex_);
    if (!std::exchange(finished_, true)) {
        end_running();
    }
    return all_ended_ && failure_.empty();
}

}  // namespace mediagrabber
