// SPDX-License-Identifier: MIT
#include "BridgeCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "temp_dir.h"

namespace {

using node::BridgeCommand;
using testing::AllOf;
using testing::HasSubstr;

TEST(BridgeCommand, WithoutOptionsTheBridgesOwnDefaultsHold) {
    const BridgeCommand command({"Tolvanev"});
    EXPECT_EQ(command.engine(), "./Tolvanev");
    EXPECT_EQ(command.mmseSettings(), "./Tolvanev.mmse.ini");
    EXPECT_EQ(command.vadSettings(), "./Tolvanev.vad.ini");
}

TEST(BridgeCommand, TakesOptionsInEveryForm) {
    for (const auto& words : std::vector<std::vector<std::string>>{
             {"Tolvanev", "--binary", "engine"},
             {"Tolvanev", "--binary=engine"},
             {"Tolvanev", "-b", "engine"},
             {"Tolvanev", "-i", "127.0.0.1", "-b", "engine", "-l", "err"}})
        EXPECT_EQ(BridgeCommand(words).engine(), "engine");
}

TEST(BridgeCommand, OfAnOptionGivenTwiceTheLastCounts) {
    EXPECT_EQ(BridgeCommand({"Tolvanev", "-b", "one", "--binary=two"}).engine(), "two");
}

TEST(BridgeCommand, ALongerNameIsAnotherOption) {
    EXPECT_EQ(BridgeCommand({"Tolvanev", "--binary_dir=x", "--vad_file", "y"}).engine(),
              "./Tolvanev");
}

TEST(BridgeCommand, AnOptionWithoutItsValueKeepsTheDefault) {
    EXPECT_EQ(BridgeCommand({"Tolvanev", "-b"}).engine(), "./Tolvanev");
}

TEST(BridgeCommand, TheProgramsOwnNameIsNoOption) {
    EXPECT_EQ(BridgeCommand({"--binary=x"}).engine(), "./Tolvanev");
}

TEST(BridgeCommand, WordsStayAsTheyAre) {
    const std::vector<std::string> words = {"Tolvanev", "-b", "engine", "", "--x=y z"};
    EXPECT_EQ(BridgeCommand(words).words(), words);
}

// A folder with all that a bridge needs, to take something away from.
class BridgeCommandFiles : public testing::Test {
  protected:
    BridgeCommandFiles() {
        for (const char* const program : {"bridge", "engine"}) {
            folder_.write(program, "#!/bin/sh\n");
            chmod(path(program).c_str(), 0755);
        }
        folder_.write("mmse.ini", "role = mmse\n");
        folder_.write("vad.ini", "role = vad\n");
    }
    std::string path(const std::string& name) const { return folder_.path(name); }
    std::string problem() const {
        return BridgeCommand({bridge_, "-b", engine_, "-m", mmse_, "-v", vad_}).problem();
    }

    TempDir folder_;
    std::string bridge_ = path("bridge");
    std::string engine_ = path("engine");
    std::string mmse_ = path("mmse.ini");
    std::string vad_ = path("vad.ini");
};

TEST_F(BridgeCommandFiles, NothingIsWrongWhenAllAreThere) {
    EXPECT_EQ(problem(), "");
}

TEST_F(BridgeCommandFiles, AMissingFileIsNamedWithItsOption) {
    bridge_ = path("none");
    EXPECT_THAT(problem(), AllOf(HasSubstr("bridge"), HasSubstr(bridge_)));
    bridge_ = path("bridge");
    engine_ = path("none");
    EXPECT_THAT(problem(), AllOf(HasSubstr("engine"), HasSubstr(engine_), HasSubstr("-b"),
                                 HasSubstr("No such file or directory")));
    engine_ = path("engine");
    mmse_ = path("none");
    EXPECT_THAT(problem(), AllOf(HasSubstr("settings"), HasSubstr(mmse_), HasSubstr("-m")));
    mmse_ = path("mmse.ini");
    vad_ = path("none");
    EXPECT_THAT(problem(), AllOf(HasSubstr("settings"), HasSubstr(vad_), HasSubstr("-v")));
}

TEST_F(BridgeCommandFiles, IsLookedForAnewEachTime) {
    const BridgeCommand command({bridge_, "-b", engine_, "-m", mmse_, "-v", vad_});
    EXPECT_EQ(command.problem(), "");
    std::filesystem::remove(engine_);
    EXPECT_THAT(command.problem(), HasSubstr(engine_));
}

TEST_F(BridgeCommandFiles, AProgramThatIsNotExecutableIsAProblem) {
    chmod(engine_.c_str(), 0644);  // not for root either: no x bit at all
    EXPECT_THAT(problem(), AllOf(HasSubstr(engine_), HasSubstr("Permission denied")));
    chmod(engine_.c_str(), 0755);
    chmod(bridge_.c_str(), 0644);
    EXPECT_THAT(problem(), AllOf(HasSubstr(bridge_), HasSubstr("executable")));
}

TEST_F(BridgeCommandFiles, AFolderIsNoProgramAndNoSettingsFile) {
    for (std::string* const file : {&bridge_, &engine_, &mmse_, &vad_}) {
        const std::string good = *file;
        *file = folder_.path();
        EXPECT_THAT(problem(), AllOf(HasSubstr(folder_.path()), HasSubstr("folder"))) << good;
        *file = good;
    }
}

TEST_F(BridgeCommandFiles, TheBridgeAsItsOwnEngineIsAProblem) {
    engine_ = bridge_;
    EXPECT_THAT(problem(), HasSubstr("bridge itself"));
    engine_ = path("link");
    std::filesystem::create_symlink(bridge_, engine_);
    EXPECT_THAT(problem(), HasSubstr("bridge itself"));
}

TEST_F(BridgeCommandFiles, AnEngineWithoutASlashIsAFileHereAndNotInThePath) {
    engine_ = "sh";  // the bridge does not search for it either
    EXPECT_THAT(problem(), HasSubstr("engine sh"));
}

TEST_F(BridgeCommandFiles, ProgramsAreFoundAsAShellFindsThem) {
    const std::string before = std::getenv("PATH");
    const std::string folder = std::filesystem::path(bridge_).parent_path();
    setenv("PATH", ("/nowhere:" + folder + ":/usr/bin:/bin").c_str(), 1);
    std::filesystem::create_directory(path("sub"));
    EXPECT_EQ(node::findProgram("bridge"), path("bridge"));
    EXPECT_EQ(node::findProgram("vad.ini"), "");  // not executable
    EXPECT_EQ(node::findProgram("sub"), "");      // a folder
    EXPECT_NE(node::findProgram("sh"), "");
    EXPECT_EQ(node::findProgram("no-such-program"), "");
    EXPECT_EQ(node::findProgram(bridge_), bridge_);
    EXPECT_EQ(node::findProgram(path("none")), "");
    setenv("PATH", before.c_str(), 1);
}

}  // namespace
