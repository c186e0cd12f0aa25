// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "Settings.h"

namespace {

class EngineSettings : public testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/engine_settings_XXXXXX";
        const int fd = mkstemp(name);
        ASSERT_GE(fd, 0);
        close(fd);
        path_ = name;
    }

    void TearDown() override { unlink(path_.c_str()); }

    engine::Settings load(const std::string& text) {
        std::ofstream(path_) << text;
        return engine::loadSettings(path_);
    }

    // The message about a bad file, without the path in front; empty if the file was good.
    std::string problem(const std::string& text) {
        try {
            load(text);
        } catch (const engine::SettingsError& error) {
            const std::string what = error.what();
            EXPECT_TRUE(what.starts_with(path_ + ":")) << what;
            return what.substr(path_.size() + 1);
        }
        return {};
    }

    std::string path_;
};

const std::string VAD = "[engine]\nrole = vad\n[vad]\n";     // three lines
const std::string MMSE = "[engine]\nrole = mmse\n[mmse]\n";  // three lines

TEST_F(EngineSettings, RoleAloneGivesTheDefaults) {
    const auto settings = load("[engine]\nrole = vad\n");
    EXPECT_EQ(settings.role, engine::Role::VAD);
    EXPECT_EQ(settings.vad.start_margin_db, 11);
    EXPECT_EQ(settings.vad.stay_margin_db, 6);
    EXPECT_EQ(settings.vad.onset_frames, 2);
    EXPECT_EQ(settings.vad.hangover_frames, 18);
    EXPECT_EQ(settings.vad.long_hangover_frames, 30);
    EXPECT_EQ(settings.vad.early_frames, 60);
    EXPECT_EQ(settings.vad.lookback_frames, 0);
    EXPECT_EQ(settings.mmse.suppression_db, -25);
    EXPECT_EQ(settings.mmse.gentle_db, -8);
    EXPECT_EQ(settings.mmse.priming_repeats, 10);
    EXPECT_EQ(settings.mmse.priming_gain_db, 6);
    EXPECT_EQ(settings.mmse.cold_repeats, 4);
}

TEST_F(EngineSettings, EveryKeyIsTaken) {
    const auto vad = load(VAD + "onset_ms = 50\nhangover_ms = 0\nlookback_frames = 7\n").vad;
    EXPECT_EQ(vad.onset_frames, 5);
    EXPECT_EQ(vad.hangover_frames, 0);
    EXPECT_EQ(vad.lookback_frames, 7);
    const auto more = load(VAD +
                           "start_margin_db = 0\nstay_margin_db = 40\nlong_hangover_ms = 30\n"
                           "early_ms = 10000\n")
                          .vad;
    EXPECT_EQ(more.start_margin_db, 0);
    EXPECT_EQ(more.stay_margin_db, 40);
    EXPECT_EQ(more.long_hangover_frames, 3);
    EXPECT_EQ(more.early_frames, 1000);
    const auto mmse = load(MMSE +
                           "suppression_db = -40\npriming_repeats = 0\npriming_gain_db = 3\n"
                           "cold_repeats = 100\ngentle_db = 0\n")
                          .mmse;
    EXPECT_EQ(mmse.suppression_db, -40);
    EXPECT_EQ(mmse.gentle_db, 0);
    EXPECT_EQ(mmse.priming_repeats, 0);
    EXPECT_EQ(mmse.priming_gain_db, 3);
    EXPECT_EQ(mmse.cold_repeats, 100);
}

TEST_F(EngineSettings, CommentsBlankLinesAndCarriageReturnsAreIgnored) {
    const auto settings = load("# a\n; b\r\n\r\n[engine]\r\n  # c\nrole = mmse ; d\r\n");
    EXPECT_EQ(settings.role, engine::Role::MMSE);
}

TEST_F(EngineSettings, LastLineNeedsNoLineEnd) {
    EXPECT_EQ(load(VAD + "onset_ms = 100").vad.onset_frames, 10);
}

TEST_F(EngineSettings, UnknownKeyIsNamedWithItsLine) {
    EXPECT_EQ(problem(VAD + "\nonset = 3\n"), "5: key 'onset': unknown in section [vad]");
    EXPECT_EQ(problem("role = vad\n"), "1: key 'role': stands before the first [section]");
}

TEST_F(EngineSettings, UnknownSectionIsNamedEvenIfEmpty) {
    EXPECT_EQ(problem("[engine]\nrole = vad\n[vda]\n"),
              "3: section 'vda': unknown, there are engine, mmse and vad");
}

TEST_F(EngineSettings, NumbersOutsideTheirRangeAreRefused) {
    EXPECT_EQ(problem(MMSE + "suppression_db = 5\n"),
              "4: key 'suppression_db': '5' is not a whole number from -60 to 0 dB");
    for (const std::string line :
         {"suppression_db = -61", "suppression_db = -25.5",
          "suppression_db =", "suppression_db = -25 dB", "suppression_db = 99999999999",
          "priming_repeats = -1", "priming_repeats = 101"})
        EXPECT_NE(problem(MMSE + line + "\n"), "") << line;
    for (const std::string line :
         {"onset_ms = 0", "onset_ms = 1010", "hangover_ms = -10", "hangover_ms = 5010",
          "lookback_frames = 51", "start_margin_db = -1", "stay_margin_db = 41",
          "long_hangover_ms = 5", "early_ms = 10010"})
        EXPECT_NE(problem(VAD + line + "\n"), "") << line;
}

TEST_F(EngineSettings, TimesAreWholeFrames) {
    EXPECT_EQ(problem(VAD + "onset_ms = 25\n"),
              "4: key 'onset_ms': '25' is not a whole number from 10 to 1000 ms in steps of 10");
}

TEST_F(EngineSettings, UnknownChoiceListsTheKnownOnes) {
    EXPECT_EQ(problem("[engine]\nrole = VAD\n"), "2: key 'role': 'VAD' is none of mmse, vad");
}

TEST_F(EngineSettings, MissingRoleIsReportedAtTheEnd) {
    EXPECT_EQ(problem("[vad]\nonset_ms = 30\n"), "2: key 'role': missing in section [engine]");
    EXPECT_EQ(problem(""), "1: key 'role': missing in section [engine]");
}

TEST_F(EngineSettings, KeyOfTheOtherRoleIsRefusedWhereverTheRoleStands) {
    EXPECT_EQ(problem(VAD + "[mmse]\nsuppression_db = -30\n"),
              "5: key 'suppression_db': belongs to section [mmse], but the role is vad");
    EXPECT_EQ(problem("[vad]\nonset_ms = 30\n[engine]\nrole = mmse\n"),
              "2: key 'onset_ms': belongs to section [vad], but the role is mmse");
}

TEST_F(EngineSettings, KeySetTwiceIsRefused) {
    EXPECT_EQ(problem(VAD + "onset_ms = 30\nonset_ms = 40\n").substr(0, 41),
              "5: key 'onset_ms': already set in line 4 ");
}

TEST_F(EngineSettings, LineThatIsNoSettingIsRefused) {
    EXPECT_EQ(problem(VAD + "onset_ms 30\n"), "4: neither [section] nor key = value");
}

TEST_F(EngineSettings, OverlongLineIsRefusedRatherThanSplit) {
    EXPECT_EQ(problem("# " + std::string(300, 'x') + "\n" + VAD),
              "1: line is longer than 198 characters");
}

TEST_F(EngineSettings, FirstOfSeveralErrorsIsReported) {
    EXPECT_EQ(problem(VAD + "nonsense\nonset_ms = x\n[foo]\n"),
              "4: neither [section] nor key = value");
}

TEST_F(EngineSettings, MissingFileIsReportedWithTheSystemsReason) {
    try {
        engine::loadSettings("/nonexistent/vad.ini");
        FAIL();
    } catch (const engine::SettingsError& error) {
        EXPECT_STREQ(error.what(), "/nonexistent/vad.ini: No such file or directory");
    }
}

TEST_F(EngineSettings, DirectoryIsReportedWithTheSystemsReason) {
    try {
        engine::loadSettings("/");
        FAIL();
    } catch (const engine::SettingsError& error) {
        EXPECT_STREQ(error.what(), "/: Is a directory");
    }
}

}  // namespace
