// SPDX-License-Identifier: MIT
#include "Listener.h"

namespace node {

const char* nameOf(State state) {
    switch (state) {
        case State::STARTING:
            return "starting";
        case State::CONNECTING:
            return "connecting";
        case State::STREAMING:
            return "streaming";
        case State::RESTARTING:
            return "restarting";
        case State::STOPPING:
            return "stopping";
    }
    return "";
}

const char* nameOf(Cut cut) {
    switch (cut) {
        case Cut::END:
            return "end";
        case Cut::STREAM:
            return "stream";
        case Cut::GAP:
            return "gap";
        case Cut::RESTART:
            return "restart";
        case Cut::LENGTH:
            return "length";
    }
    return "";
}

}  // namespace node
