// SPDX-License-Identifier: MIT
#include "WavFiles.h"

#include <sys/stat.h>

#include <filesystem>

#include "Wav.h"
#include "file_size_limit.h"
#include "node_loop.h"
#include "temp_dir.h"
#include "utterances.h"

namespace node {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const std::string FIRST = "20250304T140327.045Z-000001.wav";

class WavFilesTest : public NodeTest {
  protected:
    WavFilesTest() { options_.folder = folder_.path("wav"); }

    void make() {
        files_ = std::make_unique<WavFiles>(
            loop_, log_, options_, [this](uint64_t utterance, const std::string& path) {
                written_.push_back(std::to_string(utterance) + " " +
                                   std::filesystem::path(path).filename().string());
            });
    }
    void hear(const UtterancePtr& utterance) {
        files_->onUtterance(utterance);
        waitFor([this] { return files_->idle(); });
    }
    std::vector<std::string> found() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(options_.folder))
            names.push_back(entry.path().filename().string());
        std::ranges::sort(names);
        return names;
    }

    TempDir folder_;
    WavFilesOptions options_;
    std::vector<std::string> written_;
    std::unique_ptr<WavFiles> files_;
};

TEST_F(WavFilesTest, FileHasTheUtteranceAndItsName) {
    make();
    hear(utteranceOf(1));
    EXPECT_THAT(found(), ElementsAre(FIRST));
    EXPECT_EQ(folder_.read("wav/" + FIRST), wavImage(*utteranceOf(1)));
    EXPECT_THAT(written_, ElementsAre("1 " + FIRST));
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(WavFilesTest, NamesAreOfOneFormOnly) {
    EXPECT_TRUE(isWavName(FIRST));
    EXPECT_TRUE(isWavName("20250304T140327.045Z-1234567.wav"));
    for (const char* const other :
         {"", ".wav", "a.wav", "20250304T140327.045Z-00001.wav", "20250304T140327.045Z-000001.WAV",
          "20250304T140327.045Z-00000x.wav", "20250304t140327.045Z-000001.wav",
          "x0250304T140327.045Z-000001.wav", ".20250304T140327.045Z-000001.wav",
          "20250304T140327.045Z-000001.wav.part", "20250304T140327.045Z-000001.wav~"})
        EXPECT_FALSE(isWavName(other)) << other;
}

TEST_F(WavFilesTest, OldestGoWhenThereAreTooMany) {
    options_.max_files = 2;
    make();
    for (int i = 1; i <= 4; ++i)
        hear(utteranceOf(static_cast<uint64_t>(i), 3200, i));
    EXPECT_THAT(found(),
                ElementsAre("20250304T140330.045Z-000003.wav", "20250304T140331.045Z-000004.wav"));
}

// A robot without a clock of its own begins in the past, or in the future of its next start.
TEST_F(WavFilesTest, WhatThisNodeWroteIsNewerThanWhatItFound) {
    std::filesystem::create_directory(options_.folder);
    options_.max_files = 2;
    folder_.write("wav/20990101T000000.000Z-000001.wav", "x");
    folder_.write("wav/20990101T000000.000Z-000002.wav", "x");
    make();
    for (int i = 1; i <= 3; ++i)
        hear(utteranceOf(static_cast<uint64_t>(i), 3200, -i));  // the clock goes back
    EXPECT_THAT(found(),
                ElementsAre("20250304T140324.045Z-000003.wav", "20250304T140325.045Z-000002.wav"));
}

TEST_F(WavFilesTest, OldestGoWhenTheyAreTooLarge) {
    options_.max_bytes = 10000;
    make();
    for (int i = 1; i <= 3; ++i)
        hear(utteranceOf(static_cast<uint64_t>(i), 4000, i));
    EXPECT_EQ(found().size(), 2u);
    hear(utteranceOf(4, 20000, 4));
    EXPECT_THAT(found(), ElementsAre("20250304T140331.045Z-000004.wav"));
}

TEST_F(WavFilesTest, WhatIsNotOursStays) {
    std::filesystem::create_directory(options_.folder);
    options_.max_files = 1;
    folder_.write("wav/10000101T000000.000Z-1.wav", "too short");
    folder_.write("wav/notes.wav", "");
    std::filesystem::create_directory(options_.folder + "/10000101T000000.000Z-000001.wav");
    make();
    hear(utteranceOf(1, 3200, 1));
    hear(utteranceOf(2, 3200, 2));
    EXPECT_THAT(found(), UnorderedElementsAre("10000101T000000.000Z-000001.wav",
                                              "10000101T000000.000Z-1.wav", "notes.wav",
                                              "20250304T140329.045Z-000002.wav"));
}

TEST_F(WavFilesTest, WhatAKilledRunLeftHalfWrittenGoesAtStart) {
    std::filesystem::create_directory(options_.folder);
    folder_.write("wav/." + FIRST + ".part", "RIFF");
    folder_.write("wav/.other.part", "");
    make();
    EXPECT_THAT(found(), ElementsAre(".other.part"));
}

TEST_F(WavFilesTest, FullDiskIsSaidOnceAndLeavesNothing) {
    make();
    {
        const FileSizeLimit full(1000);
        hear(utteranceOf(1));
        hear(utteranceOf(2));
        EXPECT_THAT(found(), IsEmpty());
    }
    EXPECT_THAT(said(), ElementsAre("wav: " + options_.folder + ": file too large",
                                    "wav: 1 utterance dropped"));
    EXPECT_EQ(files_->dropped(), 2u);
    EXPECT_THAT(written_, IsEmpty());
    hear(utteranceOf(3));
    EXPECT_EQ(found().size(), 1u);
    EXPECT_THAT(said(Level::INFO), ElementsAre("wav: works again"));
}

TEST_F(WavFilesTest, FolderThatGoesAndComesBackIsSaid) {
    make();
    std::filesystem::remove_all(options_.folder);
    hear(utteranceOf(1));
    EXPECT_THAT(said(), testing::Contains(HasSubstr("no such file or directory")));
    std::filesystem::create_directory(options_.folder);
    hear(utteranceOf(2));
    EXPECT_EQ(written_.size(), 1u);
}

TEST_F(WavFilesTest, FolderThatIsNoneIsRefused) {
    folder_.write("wav", "a file");
    EXPECT_THROW(make(), NodeError);
    options_.folder = folder_.path("no/wav");
    EXPECT_THROW(make(), NodeError);
}

TEST_F(WavFilesTest, SlowDiskLosesTheNewest) {
    make();
    for (uint64_t i = 1; i <= 12; ++i)
        files_->onUtterance(utteranceOf(i));
    EXPECT_EQ(files_->dropped(), 3u);
    files_->finish();
    EXPECT_THAT(said(), ElementsAre("wav: 1 utterance dropped", "wav: 2 utterances dropped"));
    waitFor([this] { return files_->idle(); });
    EXPECT_EQ(written_.size(), 9u);
    EXPECT_THAT(written_.back(), HasSubstr("000009"));
}

TEST_F(WavFilesTest, MayGoWhileItWrites) {
    make();
    files_->onUtterance(utteranceOf(1, 1000000));
    files_->onUtterance(utteranceOf(2));
    files_.reset();
    waitFor([this] { return found() == std::vector{FIRST}; });
    EXPECT_THAT(written_, IsEmpty());
}

}  // namespace
}  // namespace node
