// SPDX-License-Identifier: MIT
#include "RunReason.h"

#include <signal.h>

#include <algorithm>

namespace node {

namespace {

// The first row whose text stands in one of the last messages, newest message first.
struct Row {
    const char* text;
    const char* reason;
    bool quote;  // the message tells more
};
constexpr Row TABLE[] = {
    {"[VoiceServerError] Data connector", "voice server reset the connection", false},
    {"[SoundClientError]",
     "sound client reset the connection, or cut a DATA header inside its digits", false},
    {"[ROSConnectorError]", "its standard input or output failed", true},
    {"Invalid header type", "a frame was torn or of an unknown type", true},
    {"launch failed", "no process or pipe for an engine", true},
    {"[AppcontrollerError]",
     "the engines' frames are not what they should be: the voice server tore a frame, or an engine "
     "is wrong, or are -m and -v exchanged?",
     true},
    {"Invalid log level.", "wrong option: --log_level is err, warn, info or debug", false},
    {"is this program itself", "the engine is the bridge itself", false},
};

std::string quoted(const Row& row, const std::string& message) {
    return row.quote ? std::string(row.reason) + ": " + message : row.reason;
}

// A command line that the bridge does not take: what is wrong with it, then the help text. The
// first mistake may have made others of the words behind it.
std::string commandLineEnd(const std::deque<std::string>& messages) {
    const auto help = std::find_if(messages.begin(), messages.end(), [](const auto& message) {
        return message.starts_with("usage: ") && message.find(" [options] ...") != message.npos;
    });
    if (help == messages.end())
        return "";
    if (help == messages.begin())
        return "it printed its help text";
    return "wrong option: " + messages.front();
}

// How an engine ended that did not end in good order; empty when all did. Those that outlive the
// bridge write to a pipe that nobody reads: SIGPIPE, or a status and a word, tells of that as well.
std::string brokenEngine(const RunEvidence& evidence) {
    for (const Ending& engine : evidence.engines) {
        if (engine.signal != 0 && engine.signal != SIGTERM && engine.signal != SIGPIPE)
            return "an engine ended with " + engine.text();
    }
    const bool broken_pipe = std::ranges::any_of(evidence.messages, [](const auto& message) {
        return message.find("Broken pipe") != message.npos;
    });
    for (const Ending& engine : evidence.engines) {
        if (engine.status != 0 && !(evidence.had_frames && broken_pipe))
            return (evidence.had_frames
                        ? "voice server closed the connection, or an engine ended with "
                        : "an engine ended with ") +
                   engine.text();
    }
    return "";
}

std::string brokenPipe(const RunEvidence& evidence) {
    std::string engine = brokenEngine(evidence);
    if (!engine.empty())
        return engine;
    if (evidence.just_told)
        return "sound client, or voice server, closed the connection";
    if (evidence.had_frames)
        return "voice server closed the connection";
    return "voice server closed the connection, or an engine ended at once (--check tells whether "
           "its settings are wrong)";
}

}  // namespace

std::string reasonOf(const RunEvidence& evidence) {
    if (evidence.ending.signal == SIGPIPE)
        return brokenPipe(evidence);
    if (evidence.ending.signal != 0)
        return "killed by " + evidence.ending.text();
    std::string command_line = commandLineEnd(evidence.messages);
    if (!command_line.empty())
        return command_line;
    for (auto message = evidence.messages.rbegin(); message != evidence.messages.rend();
         ++message) {
        for (const Row& row : TABLE) {
            if (message->find(row.text) != std::string::npos)
                return quoted(row, *message);
        }
    }
    if (evidence.ending.status != 0)  // not the bridge's own: of what was to start it
        return "ended with " + evidence.ending.text() +
               (evidence.messages.empty() ? "" : ": " + evidence.messages.back());
    return "was interrupted, or ended without a word";
}

}  // namespace node
