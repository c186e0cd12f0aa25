// SPDX-License-Identifier: MIT
#include <algorithm>
#include <map>
#include <sstream>

#include "Trial.h"

namespace {

double percentile(const std::vector<double>& sorted, double percent) {
    const auto at = static_cast<double>(sorted.size() - 1) * percent / 100.0;
    return sorted[static_cast<size_t>(at)];
}

void describe(std::ostringstream& text, const char* name, const StreamCheck& stream) {
    text << ", \"" << name << "\": {\"frames\": " << stream.frames()
         << ", \"live\": " << stream.live_ << ", \"silent\": " << stream.silent_
         << ", \"markers\": " << stream.markers_ << ", \"noise\": " << stream.noise_
         << ", \"lost\": " << stream.lost_ << ", \"renewals\": " << stream.renewals_
         << ", \"wrong\": " << stream.wrong_ << "}";
}

}  // namespace

std::string Trial::report() const {
    const uint64_t frames = end_.frames - begin_.frames;
    const double seconds = std::chrono::duration<double>(end_.time - begin_.time).count();
    std::ostringstream text;
    text << "{\"good\": " << (good() ? "true" : "false") << ", \"sent\": " << sent_
         << ", \"measured\": " << frames << ", \"seconds\": " << seconds
         << ", \"cpu_us\": " << (end_.process.cpu_s - begin_.process.cpu_s) * 1e6
         << ", \"peak_rss_kb\": " << end_.process.peak_rss_kb
         << ", \"processes\": " << end_.process.processes;
    describe(text, "results", results_);
    describe(text, "returned", returned_);
    if (!lag_.empty())
        text << delays();
    text << "}";
    return text.str();
}

// The lag counts the frames that were sent behind one until it came back: its delay in passes. What
// the program itself adds is the response: from the last of those to the frame's return.
std::string Trial::delays() const {
    std::vector<double> sorted = response_us_;
    std::sort(sorted.begin(), sorted.end());
    std::map<uint32_t, size_t> lags;
    for (const uint32_t lag : lag_)
        ++lags[lag];
    std::ostringstream text;
    text << ", \"response_us\": {\"p50\": " << percentile(sorted, 50)
         << ", \"p90\": " << percentile(sorted, 90) << ", \"p99\": " << percentile(sorted, 99)
         << ", \"max\": " << sorted.back() << "}, \"lag\": {";
    const char* separator = "";
    for (const auto& [lag, count] : lags) {
        text << separator << "\"" << lag << "\": " << count;
        separator = ", ";
    }
    text << "}";
    return text.str();
}
