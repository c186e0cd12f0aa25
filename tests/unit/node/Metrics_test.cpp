// SPDX-License-Identifier: MIT
#include "Metrics.h"

#include <filesystem>
#include <set>
#include <sstream>

#include "file_size_limit.h"
#include "node_loop.h"
#include "temp_dir.h"

namespace node {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

Status filled() {
    Status status;
    status.state = State::STREAMING;
    status.run = 3;
    status.restarts = 2;
    status.data_frames = 12345678;
    status.rate = 99.5;
    status.frame_age = 0.25;
    status.dropped = {{"wav", 7}, {"a\"b\\c\nd", 1}};
    status.processes = {{.name = "bridge", .pid = 42, .memory = 4096, .cpu_seconds = 1.5}};
    return status;
}

TEST(MetricsText, HasWhatTheStatusHas) {
    const std::string text = metricsOf(filled());
    for (const char* const line :
         {"tolvanev_state{state=\"streaming\"} 1\n", "tolvanev_state{state=\"stopping\"} 0\n",
          "tolvanev_frames_total{type=\"data\"} 12345678\n", "tolvanev_frame_rate 99.5\n",
          "tolvanev_frame_age_seconds 0.25\n", "tolvanev_restarts_total 2\n",
          "tolvanev_dropped_total{output=\"wav\"} 7\n",
          "tolvanev_dropped_total{output=\"a\\\"b\\\\c\\nd\"} 1\n",
          "tolvanev_process_resident_memory_bytes{process=\"bridge\",pid=\"42\"} 4096\n",
          "tolvanev_process_cpu_seconds_total{process=\"bridge\",pid=\"42\"} 1.5\n"})
        EXPECT_THAT(text, HasSubstr(line));
}

TEST(MetricsText, WhatIsNotKnownIsLeftOut) {
    EXPECT_THAT(metricsOf({}), Not(HasSubstr("frame_age")));
}

// As the format wants it: help and type once ahead of the samples of a metric, which stand
// together.
TEST(MetricsText, EveryMetricIsIntroducedOnce) {
    std::istringstream lines(metricsOf(filled()));
    std::set<std::string> seen;
    std::string name;
    std::string type;
    int samples = 0;
    for (std::string hash, kind, line; std::getline(lines, line);) {
        std::istringstream words(line);
        if (line.starts_with("# HELP")) {
            words >> hash >> kind >> name;
            EXPECT_TRUE(seen.insert(name).second) << line;
        } else if (line.starts_with("# TYPE")) {
            std::string of;
            words >> hash >> kind >> of >> type;
            EXPECT_EQ(of, name);
            EXPECT_EQ(type == "counter", name.ends_with("_total")) << line;
        } else {
            EXPECT_TRUE(line.starts_with(name + "{") || line.starts_with(name + " ")) << line;
            ++samples;
        }
    }
    EXPECT_GT(samples, 20);
}

class MetricsTest : public NodeTest {
  protected:
    void make() {
        metrics_ = std::make_unique<Metrics>(
            loop_, log_, MetricsOptions{folder_.path("in/node.prom"), milliseconds(10)}, [this] {
                ++status_.data_frames;
                return status_;
            });
    }
    MetricsTest() { std::filesystem::create_directory(folder_.path("in")); }
    std::string text() const { return folder_.read("in/node.prom"); }
    size_t files() const {
        const std::filesystem::directory_iterator all(folder_.path("in"));
        return static_cast<size_t>(std::distance(begin(all), end(all)));
    }

    TempDir folder_;
    Status status_ = filled();
    std::unique_ptr<Metrics> metrics_;
};

TEST_F(MetricsTest, FileIsThereFromTheStartAndKeptUpToDate) {
    make();
    EXPECT_THAT(text(), HasSubstr("tolvanev_state{state=\"starting\"} 1"));
    waitFor([this] { return text().find("{state=\"streaming\"} 1") != std::string::npos; });
    status_.data_frames = 500;
    waitFor([this] { return text().find("{type=\"data\"} 5") != std::string::npos; });
}

TEST_F(MetricsTest, AtTheEndItSaysSoAndStays) {
    make();
    runFor(loop_, milliseconds(15));
    metrics_->finish();
    waitFor([this] { return metrics_->idle(); });
    EXPECT_THAT(text(), HasSubstr("tolvanev_state{state=\"stopping\"} 1"));
    metrics_.reset();
    EXPECT_EQ(files(), 1u);
}

TEST_F(MetricsTest, AtTheEndItDoesSoBehindAWriteUnderWay) {
    make();
    waitFor([this] { return !metrics_->idle(); });
    metrics_->finish();
    EXPECT_FALSE(metrics_->idle());
    waitFor([this] { return metrics_->idle(); });
    EXPECT_THAT(text(), HasSubstr("tolvanev_state{state=\"stopping\"} 1"));
}

TEST_F(MetricsTest, FullDiskKeepsTheLastFileAndIsSaidOnce) {
    make();
    {
        const FileSizeLimit full(100);
        waitFor([this] { return !said().empty(); });
        runFor(loop_, milliseconds(100));
        EXPECT_THAT(said(), ElementsAre(HasSubstr("node.prom: file too large")));
        waitFor([this] { return metrics_->idle(); });
        EXPECT_THAT(text(), HasSubstr("tolvanev_frames_total"));
        EXPECT_EQ(files(), 1u);
    }
    waitFor([this] { return !said(Level::INFO).empty(); });
    EXPECT_THAT(text(), HasSubstr("tolvanev_frames_total"));
}

TEST_F(MetricsTest, FolderThatGoesIsSaid) {
    make();
    std::filesystem::remove_all(folder_.path("in"));
    waitFor([this] { return !said().empty(); });
    EXPECT_THAT(said(), SizeIs(1));
    std::filesystem::create_directory(folder_.path("in"));
    waitFor([this] { return !text().empty(); });
}

TEST_F(MetricsTest, FolderThatIsMissingIsRefused) {
    EXPECT_THROW(Metrics(loop_, log_, {folder_.path("no/node.prom")}, [] { return Status{}; }),
                 NodeError);
}

TEST_F(MetricsTest, MayGoWhileItWrites) {
    make();
    waitFor([this] { return !metrics_->idle(); });
    metrics_.reset();
    runFor(loop_, milliseconds(50));
    EXPECT_EQ(files(), 1u);
    EXPECT_THAT(said(), IsEmpty());
}

}  // namespace
}  // namespace node
