// SPDX-License-Identifier: MIT
#include "Status.h"

#include <nlohmann/json.hpp>

namespace node {

namespace {

using Json = nlohmann::ordered_json;

Json processOf(const ProcessVitals& process) {
    return {{"name", process.name},        {"pid", process.pid},
            {"memory", process.memory},    {"cpu_seconds", process.cpu_seconds},
            {"read", process.read},        {"written", process.written},
            {"switches", process.switches}};
}

}  // namespace

std::string jsonOf(const Status& status) {
    Json json;
    json["state"] = nameOf(status.state);
    json["reason"] = status.reason;
    json["run"] = status.run;
    json["restarts"] = status.restarts;
    json["run_seconds"] = status.run_seconds;
    json["frames"] = Json{{"data", status.data_frames},
                          {"start", status.start_frames},
                          {"end", status.end_frames},
                          {"tof", status.tof_frames},
                          {"eof", status.eof_frames}};
    json["rate"] = status.rate;
    json["frame_age"] = status.frame_age ? Json(*status.frame_age) : Json(nullptr);
    json["gaps"] = status.gaps;
    json["resyncs"] = status.resyncs;
    json["resync_bytes"] = status.resync_bytes;
    json["utterances"] = status.utterances;
    json["speech"] = status.speech;
    json["play_sound"] = status.play_sound;
    json["dropped"] = Json::object();
    for (const auto& [output, count] : status.dropped)
        json["dropped"][output] = count;
    json["processes"] = Json::array();
    for (const ProcessVitals& process : status.processes)
        json["processes"].push_back(processOf(process));
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace node
