// SPDX-License-Identifier: MIT
// The test double of an engine. Its "settings file" is its script, one directive a line:
//
//     role mmse | vad    frames of 324 or 104 bytes out (default mmse)
//     log PATH           append "pid start", "pid emitted" (if told to emit),
//                        "pid frame TYPE FIRST_SAMPLE", "pid end" lines
//     emit TYPE...       at start, write frames of these types, numbered from 1
//     start N, end N     vad: a START or END frame ahead of the answer to the N-th data frame
//     silent             answer nothing
//     exit_after N       end after N input frames; 0: at once
//     stall_after N      after N input frames neither read nor write, but stay alive
//     late N             answer the first N frames when all of them have come
//     unlogged           log nothing from here on: for very many frames
//     slow MS            take so many milliseconds for each answer
//     extra N            N more frames, with first sample 0, behind each answer
//     cut N              send answers in two parts: N bytes, the rest when those have been read
//     flood              write frames without end and read nothing
//     ignore_term        ignore SIGTERM
//     ignore_end         stay alive when the input has ended
//
// Otherwise each input frame is answered at once by one frame of its type: an MMSE engine returns
// the samples negated, so that a test can tell its output from the input, and a VAD engine sends
// the first sample as its first float.
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr size_t AUDIO_FRAME = 324;
constexpr size_t VAD_FRAME = 104;

struct Script {
    bool vad = false;
    bool silent = false;
    bool flood = false;
    bool ignore_end = false;
    long exit_after = -1;
    long stall_after = -1;
    size_t late = 0;
    long slow = 0;
    long extra = 0;
    size_t cut = 0;  // 0: answers are not cut
    std::string log;
    std::vector<int> emitted;
    std::set<long> starts;
    std::set<long> ends;
};

Script readScript(const char* path) {
    Script script;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string directive;
        words >> directive;
        long number = 0;
        if (directive == "role")
            words >> directive, script.vad = directive == "vad";
        else if (directive == "log")
            words >> script.log;
        else if (directive == "emit")
            while (words >> number)
                script.emitted.push_back(static_cast<int>(number));
        else if (directive == "start" && words >> number)
            script.starts.insert(number);
        else if (directive == "end" && words >> number)
            script.ends.insert(number);
        else if (directive == "silent")
            script.silent = true;
        else if (directive == "exit_after")
            words >> script.exit_after;
        else if (directive == "stall_after")
            words >> script.stall_after;
        else if (directive == "unlogged")
            script.log.clear();
        else if (directive == "late")
            words >> script.late;
        else if (directive == "slow")
            words >> script.slow;
        else if (directive == "extra")
            words >> script.extra;
        else if (directive == "cut")
            words >> script.cut;
        else if (directive == "flood")
            script.flood = true;
        else if (directive == "ignore_end")
            script.ignore_end = true;
        else if (directive == "ignore_term")
            signal(SIGTERM, SIG_IGN);
        else if (!directive.empty())
            fprintf(stderr, "scripted_engine: %s: unknown directive %s\n", path, directive.c_str());
    }
    return script;
}

class Engine {
  public:
    explicit Engine(const Script& script) : script_(script) {}

    int run() {
        log("start");
        for (size_t i = 0; i < script_.emitted.size(); ++i)
            send(script_.emitted[i], static_cast<int16_t>(i + 1));
        if (!script_.emitted.empty())
            log("emitted");
        while (script_.flood)
            send(0, 0);
        long inputs = 0;
        for (char frame[AUDIO_FRAME]; inputs != script_.exit_after; ++inputs) {
            if (inputs == script_.stall_after)
                live();
            if (!receive(frame))
                break;
            answerInTime(frame);
        }
        log("end");
        if (script_.ignore_end)
            live();
        return 0;
    }

  private:
    [[noreturn]] static void live() {
        while (true)
            pause();
    }

    static bool receive(char* frame) {
        for (size_t have = 0; have < AUDIO_FRAME;) {
            const ssize_t count = read(STDIN_FILENO, frame + have, AUDIO_FRAME - have);
            if (count <= 0)
                return false;
            have += static_cast<size_t>(count);
        }
        return true;
    }

    void answerInTime(const char* frame) {
        if (script_.late == 0)
            return answer(frame);
        held_.emplace_back(frame, AUDIO_FRAME);
        if (held_.size() < script_.late)
            return;
        script_.late = 0;
        for (const std::string& each : held_)
            answer(each.data());
    }

    void answer(const char* frame) {
        int32_t type = 0;
        int16_t samples[160];
        memcpy(&type, frame, sizeof(type));
        memcpy(samples, frame + sizeof(type), sizeof(samples));
        log("frame " + std::to_string(type) + " " + std::to_string(samples[0]));
        usleep(static_cast<useconds_t>(script_.slow * 1000));
        if (script_.silent)
            return;
        if (script_.vad) {
            data_frames_ += type == 0;
            if (type == 0 && script_.starts.contains(data_frames_))
                send(1, samples[0]);
            if (type == 0 && script_.ends.contains(data_frames_))
                send(2, samples[0]);
            send(type, samples[0]);
        } else {
            char reply[AUDIO_FRAME];
            for (int16_t& sample : samples)
                sample = static_cast<int16_t>(-sample);
            memcpy(reply, &type, sizeof(type));
            memcpy(reply + sizeof(type), samples, sizeof(samples));
            put(reply, AUDIO_FRAME);
        }
        for (long i = 0; i < script_.extra; ++i)
            send(0, 0);
    }

    // A frame of this type whose first value is `first`, the rest zeros.
    void send(int32_t type, int16_t first) {
        char frame[AUDIO_FRAME] = {};
        memcpy(frame, &type, sizeof(type));
        const float number = first;
        if (script_.vad)
            memcpy(frame + sizeof(type), &number, sizeof(number));
        else
            memcpy(frame + sizeof(type), &first, sizeof(first));
        put(frame, script_.vad ? VAD_FRAME : AUDIO_FRAME);
    }

    void put(const char* bytes, size_t size) const {
        const size_t first = script_.cut < size ? script_.cut : 0;
        if (first > 0) {
            putWhole(bytes, first);
            waitUntilRead();
        }
        putWhole(bytes + first, size - first);
        if (first > 0)
            waitUntilRead();
    }

    static void waitUntilRead() {
        for (int waiting = 1; waiting > 0; usleep(100))
            if (ioctl(STDOUT_FILENO, FIONREAD, &waiting) == -1)
                _exit(1);
    }

    static void putWhole(const char* bytes, size_t size) {
        if (write(STDOUT_FILENO, bytes, size) != static_cast<ssize_t>(size))
            _exit(1);  // nobody reads any more
    }

    void log(const std::string& event) const {
        if (script_.log.empty())
            return;
        std::ofstream file(script_.log, std::ios::app);
        file << getpid() << " " << event << std::endl;
    }

    Script script_;
    long data_frames_ = 0;
    std::vector<std::string> held_;  // frames that wait for their late answers
};

}  // namespace

int main(int argc, char** argv) {
    return argc == 2 ? Engine(readScript(argv[1])).run() : 2;
}
