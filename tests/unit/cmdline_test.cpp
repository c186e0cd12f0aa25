// SPDX-License-Identifier: MIT
#include "cmdline.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using std::string;
using Port = unsigned short;

// The options of the bridge, and command lines for them.
class CommandLine : public testing::Test {
  protected:
    CommandLine() {
        options_.add("help", 'h', "print help");
        options_.add<string>("ipaddr", 'i', "voice server ip addr", false, "172.0.0.1");
        options_.add<string>("mmse", 'm', "mmse setting file", false, "./Tolvanev.mmse.ini");
        options_.add<string>("vad", 'v', "vad setting file", false, "./Tolvanev.vad.ini");
        options_.add<string>("binary", 'b', "Tolvane binary dir", false, "./Tolvanev");
        options_.add<string>("log_level", 'l', "loglevel (err, warn, info, debug)", false, "info");
        options_.add<Port>("client_port", 'c', "voice server client port", false, 5002);
        options_.add<Port>("server_port", 's', "voice server server port", false, 16001);
    }

    bool parse(const std::vector<string>& words, const char* program = "Tolvanev") {
        std::vector<const char*> argv = {program};
        for (const string& word : words)
            argv.push_back(word.c_str());
        return options_.parse(static_cast<int>(argv.size()), argv.data());
    }

    // The error texts for a command line that must be refused.
    string errors(const std::vector<string>& words) {
        EXPECT_FALSE(parse(words));
        return options_.error_full();
    }

    // A text option's value after a command line that must be accepted.
    string text(const std::vector<string>& words, const string& name) {
        EXPECT_TRUE(parse(words)) << options_.error_full();
        return options_.get<string>(name);
    }

    int port(const std::vector<string>& words, const string& name = "client_port") {
        EXPECT_TRUE(parse(words)) << options_.error_full();
        return options_.get<Port>(name);
    }

    cmdline::parser options_;
};

TEST_F(CommandLine, WithoutOptionsGivesTheDefaults) {
    EXPECT_TRUE(parse({}));
    EXPECT_EQ(options_.get<string>("ipaddr"), "172.0.0.1");
    EXPECT_EQ(options_.get<string>("mmse"), "./Tolvanev.mmse.ini");
    EXPECT_EQ(options_.get<string>("vad"), "./Tolvanev.vad.ini");
    EXPECT_EQ(options_.get<string>("binary"), "./Tolvanev");
    EXPECT_EQ(options_.get<string>("log_level"), "info");
    EXPECT_EQ(options_.get<Port>("client_port"), 5002);
    EXPECT_EQ(options_.get<Port>("server_port"), 16001);
}

TEST_F(CommandLine, WithoutOptionsHasNoErrorAndNoOption) {
    EXPECT_TRUE(parse({}));
    EXPECT_EQ(options_.error_full(), "");
    EXPECT_FALSE(options_.exist("help"));
    EXPECT_FALSE(options_.exist("ipaddr"));
}

TEST_F(CommandLine, UsageIsExact) {
    parse({}, "/opt/bridge/Tolvanev");
    EXPECT_EQ(options_.usage(),
              "usage: /opt/bridge/Tolvanev [options] ... \n"
              "options:\n"
              "  -h, --help           print help\n"
              "  -i, --ipaddr         voice server ip addr (string [=172.0.0.1])\n"
              "  -m, --mmse           mmse setting file (string [=./Tolvanev.mmse.ini])\n"
              "  -v, --vad            vad setting file (string [=./Tolvanev.vad.ini])\n"
              "  -b, --binary         Tolvane binary dir (string [=./Tolvanev])\n"
              "  -l, --log_level      loglevel (err, warn, info, debug) (string [=info])\n"
              "  -c, --client_port    voice server client port (unsigned short [=5002])\n"
              "  -s, --server_port    voice server server port (unsigned short [=16001])\n");
}

TEST_F(CommandLine, UsageNamesDefaultsNotValues) {
    parse({});
    const string before = options_.usage();
    parse({"-c", "1", "--ipaddr=10.0.0.1", "-h"});
    EXPECT_EQ(options_.usage(), before);
}

TEST_F(CommandLine, LongOptionTakesItsValueAfterTheEqualsSign) {
    EXPECT_EQ(text({"--ipaddr=127.0.0.1"}, "ipaddr"), "127.0.0.1");
    EXPECT_EQ(port({"--client_port=80"}), 80);
}

TEST_F(CommandLine, LongOptionTakesItsValueFromTheNextWord) {
    EXPECT_EQ(text({"--mmse", "a.ini"}, "mmse"), "a.ini");
    EXPECT_EQ(port({"--server_port", "80"}, "server_port"), 80);
}

TEST_F(CommandLine, ShortOptionTakesItsValueFromTheNextWord) {
    EXPECT_EQ(text({"-v", "a.ini"}, "vad"), "a.ini");
    EXPECT_EQ(text({"-b", "/usr/bin/engine"}, "binary"), "/usr/bin/engine");
    EXPECT_EQ(port({"-c", "80"}), 80);
}

TEST_F(CommandLine, ValueBeginsAfterTheFirstEqualsSign) {
    EXPECT_EQ(text({"--mmse=a=b=c"}, "mmse"), "a=b=c");
    EXPECT_EQ(text({"--mmse", "a=b"}, "mmse"), "a=b");
}

TEST_F(CommandLine, TextMayBeEmptyOrHoldBlanks) {
    EXPECT_EQ(text({"--mmse="}, "mmse"), "");
    EXPECT_EQ(text({"-m", ""}, "mmse"), "");
    EXPECT_EQ(text({"-m", "my settings.ini"}, "mmse"), "my settings.ini");
}

TEST_F(CommandLine, NextWordIsTheValueWhateverItLooksLike) {
    EXPECT_EQ(text({"-m", "-h"}, "mmse"), "-h");
    EXPECT_EQ(text({"--mmse", "--help"}, "mmse"), "--help");
    EXPECT_FALSE(options_.exist("help"));
}

TEST_F(CommandLine, TakesAllOptionsTogether) {
    EXPECT_TRUE(parse({"-i", "10.0.0.1", "--mmse=m", "-v", "v", "--binary", "b", "-l", "debug",
                       "-c", "1", "--server_port=2"}));
    EXPECT_EQ(options_.get<string>("ipaddr") + options_.get<string>("mmse") +
                  options_.get<string>("vad") + options_.get<string>("binary") +
                  options_.get<string>("log_level"),
              "10.0.0.1mvbdebug");
    EXPECT_EQ(options_.get<Port>("client_port"), 1);
    EXPECT_EQ(options_.get<Port>("server_port"), 2);
}

TEST_F(CommandLine, OfAnOptionGivenTwiceTheLastValueCounts) {
    EXPECT_EQ(port({"-c", "1", "--client_port=2", "-c", "3"}), 3);
}

TEST_F(CommandLine, ExistTellsOptionsThatWereGiven) {
    parse({"-h", "--mmse=a"});
    EXPECT_TRUE(options_.exist("help"));
    EXPECT_TRUE(options_.exist("mmse"));
    EXPECT_FALSE(options_.exist("vad"));
}

TEST_F(CommandLine, FlagHasALongAndAShortForm) {
    EXPECT_TRUE(parse({"--help"}));
    EXPECT_TRUE(options_.exist("help"));
}

TEST_F(CommandLine, FlagTakesNoWordAfterIt) {
    EXPECT_EQ(port({"-h", "-c", "80"}), 80);
    EXPECT_EQ(port({"--help", "-c", "81"}), 81);
}

TEST_F(CommandLine, FlagsMayShareOneHyphen) {
    options_.add("daemon", 'd', "run in the background");
    options_.add("quiet", 'q', "say nothing");
    EXPECT_TRUE(parse({"-hd"}));
    EXPECT_TRUE(options_.exist("help"));
    EXPECT_TRUE(options_.exist("daemon"));
    EXPECT_FALSE(options_.exist("quiet"));
}

TEST_F(CommandLine, FlagRefusesAValue) {
    EXPECT_EQ(errors({"--help=x"}), "option value is invalid: --help=x\n");
    EXPECT_EQ(errors({"--help="}), "option value is invalid: --help=\n");
    EXPECT_FALSE(options_.exist("help"));
}

TEST_F(CommandLine, RefusesAnUndefinedLongOption) {
    EXPECT_EQ(errors({"--port"}), "undefined option: --port\n");
    EXPECT_EQ(errors({"--port=5"}), "undefined option: --port\n");
    EXPECT_EQ(errors({"--HELP"}), "undefined option: --HELP\n");
    EXPECT_EQ(errors({"--hel"}), "undefined option: --hel\n");
}

TEST_F(CommandLine, RefusesAnUndefinedShortOption) {
    EXPECT_EQ(errors({"-x"}), "undefined short option: -x\n");
    EXPECT_EQ(errors({"-H"}), "undefined short option: -H\n");
    EXPECT_EQ(errors({"-hx"}), "undefined short option: -x\n");
}

TEST_F(CommandLine, RefusesAnAmbiguousShortOption) {
    options_.add("daemon", 'd', "run in the background");
    options_.add("dump", 'd', "write everything down");
    EXPECT_EQ(errors({"-d"}), "ambiguous short option: -d\n");
    EXPECT_TRUE(parse({"--daemon", "--dump"}));
}

TEST_F(CommandLine, RefusesAnOptionWithoutItsValue) {
    EXPECT_EQ(errors({"--mmse"}), "option needs value: --mmse\n");
    EXPECT_EQ(errors({"-m"}), "option needs value: --mmse\n");
    EXPECT_EQ(errors({"-h", "-s"}), "option needs value: --server_port\n");
}

TEST_F(CommandLine, RefusesAValueGluedToAShortOption) {
    EXPECT_EQ(errors({"-ch", "80"}), "option needs value: --client_port\n");
}

TEST_F(CommandLine, TakesEveryPort) {
    EXPECT_EQ(port({"-c", "0"}), 0);
    EXPECT_EQ(port({"-c", "1"}), 1);
    EXPECT_EQ(port({"-c", "65535"}), 65535);
    EXPECT_EQ(port({"-c", "005002"}), 5002);
}

TEST_F(CommandLine, RefusesAPortThatIsNotDigits) {
    for (const char* const value :
         {"", "x", "-1", "+1", " 1", "1 ", "1x", "0x10", "1.0", "1e3", "-65535", "1\n", "--help"})
        EXPECT_EQ(errors({string("--client_port=") + value}),
                  string("option value is invalid: --client_port=") + value + "\n");
}

TEST_F(CommandLine, RefusesAPortAboveSixteenBits) {
    for (const char* const value : {"65536", "70000", "4294967296", "4294972298",
                                    "18446744073709551617", "99999999999999999999999"})
        EXPECT_EQ(errors({"-s", value}),
                  string("option value is invalid: --server_port=") + value + "\n");
}

TEST_F(CommandLine, ARefusedValueLeavesTheDefault) {
    errors({"-c", "80x", "--server_port=65536"});
    EXPECT_EQ(options_.get<Port>("client_port"), 5002);
    EXPECT_EQ(options_.get<Port>("server_port"), 16001);
}

TEST_F(CommandLine, CollectsErrorsInOrder) {
    EXPECT_EQ(errors({"-x", "--foo", "-c", "abc", "--help=1", "-h", "--vad"}),
              "undefined short option: -x\n"
              "undefined option: --foo\n"
              "option value is invalid: --client_port=abc\n"
              "option value is invalid: --help=1\n"
              "option needs value: --vad\n");
    EXPECT_TRUE(options_.exist("help"));
}

TEST_F(CommandLine, IgnoresWordsThatAreNoOption) {
    EXPECT_EQ(port({"stray", "-c", "80", "words", "", "="}), 80);
    EXPECT_EQ(options_.error_full(), "");
}

TEST_F(CommandLine, RefusesAnEmptyArgumentVector) {
    EXPECT_FALSE(options_.parse(0, nullptr));
    EXPECT_EQ(options_.error_full(), "argument number must be longer than 0\n");
}

TEST_F(CommandLine, NeedsARequiredOption) {
    options_.add<string>("name", 'n', "name of the robot", true, "");
    EXPECT_EQ(errors({}), "need option: --name\n");
    EXPECT_EQ(text({"-n", "robot"}, "name"), "robot");
}

TEST_F(CommandLine, AskingForWhatWasNotDeclaredIsALogicError) {
    EXPECT_THROW(options_.exist("port"), std::logic_error);
    EXPECT_THROW(options_.get<string>("port"), std::logic_error);
    EXPECT_THROW(options_.get<string>("client_port"), std::logic_error);
    EXPECT_THROW(options_.add("help", 'x', "once more"), std::logic_error);
}

TEST_F(CommandLine, UsageOfAnOptionWithoutLetterBeginsWithBlanks) {
    cmdline::parser options;
    options.add<Port>("a", 'a', "first", true, 7);
    options.add("long", 0, "second");
    const char* const argv[] = {"program"};
    options.parse(1, argv);
    EXPECT_TRUE(
        options.usage().ends_with("options:\n"
                                  "  -a, --a       first (unsigned short)\n"
                                  "      --long    second\n"))
        << options.usage();
}

}  // namespace
