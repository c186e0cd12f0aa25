// SPDX-License-Identifier: MIT
// The logger: one statement, one line on standard error.
//
//     LOG_AT(logINFO) << "play sound state is " << state;
//     - 14:03:27.045 INFO: play sound state is 1
//
// A statement above the reporting level costs one comparison: its operands are not evaluated.
// Each line is written and flushed when its statement ends. Write errors are ignored: there is
// nowhere left to report them. Composing a line reads the clock, which may overwrite errno.
#ifndef TOLVANEV_LOG_H
#define TOLVANEV_LOG_H

#include <sys/time.h>

#include <cstdio>
#include <ctime>
#include <sstream>
#include <string>

#include "Interrupt.h"

enum TLogLevel {
    logERROR,
    logWARNING,
    logINFO,
    logDEBUG,
    logDEBUG1,
    logDEBUG2,
    logDEBUG3,
    logDEBUG4
};

// Local time of day, "HH:MM:SS.mmm".
// Kept: seconds and milliseconds are two readings of the clock; at a second's edge the stamp can
// be up to one second off.
inline std::string NowTime() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char seconds[11] = "";
    strftime(seconds, sizeof(seconds), "%X", &local);
    timeval precise{};
    gettimeofday(&precise, nullptr);
    char stamp[100] = "";
    snprintf(stamp, sizeof(stamp), "%s.%03ld", seconds, static_cast<long>(precise.tv_usec) / 1000);
    return stamp;
}

// One line in the making. T is the output policy: T::Output(text) receives the finished line.
template <typename T>
class Log {
  public:
    Log() = default;
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    virtual ~Log() {  // emits the line
        os << std::endl;
        T::Output(os.str());
    }

    // Streams the prefix and hands out the stream for the message.
    std::ostringstream& Get(TLogLevel level) {
        os << "- " << NowTime() << " " << ToString(level) << ": ";
        os << std::string(level > logDEBUG ? static_cast<size_t>(level - logDEBUG) : 0, '\t');
        return os;
    }

    // Statements above this level do nothing. Process-wide; main sets it from --log_level.
    static TLogLevel& ReportingLevel() {
        static TLogLevel level = logDEBUG4;
        return level;
    }

    static std::string ToString(TLogLevel level) {
        static const char* const tags[] = {"ERROR",  "WARNING", "INFO",   "DEBUG",
                                           "DEBUG1", "DEBUG2",  "DEBUG3", "DEBUG4"};
        return tags[level];
    }

  protected:
    std::ostringstream os;
};

// Output policy: a C stream, standard error unless another is assigned; null silences the log.
class Output2FILE {
  public:
    static FILE*& Stream() {
        static FILE* stream = stderr;
        return stream;
    }

    // Kept: "%s" cuts a message at its first NUL byte, the line feed included, so the next line
    // continues on the same output line.
    static void Output(const std::string& msg) {
        FILE* const stream = Stream();
        if (!stream)
            return;
        interruptible([&] { return fprintf(stream, "%s", msg.c_str()) + fflush(stream); });
    }
};

class FILELog : public Log<Output2FILE> {
  public:
    ~FILELog() override = default;
};

struct LogStatement {
    static bool prints(TLogLevel level) {
        return level <= FILELog::ReportingLevel() && Output2FILE::Stream();
    }
    // Gives both branches of LOG_AT the type void; '&' binds weaker than '<<'.
    void operator&(const std::ostream&) const {}
};

// NOLINTBEGIN(bugprone-macro-parentheses): the operands of << follow it
#define LOG_AT(level) !LogStatement::prints(level) ? (void)0 : LogStatement() & FILELog().Get(level)
// NOLINTEND(bugprone-macro-parentheses)

#endif
