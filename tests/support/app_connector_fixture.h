// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_APP_CONNECTOR_FIXTURE_H
#define TOLVANEV_TESTS_APP_CONNECTOR_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AppConnector.h"
#include "error_text.h"
#include "faults.h"
#include "hermetic_test.h"
#include "scripted_engines.h"

// What one read of the connector found.
struct ReadResult {
    int status;
    std::string block;  // was all '-' before the read
};

// A connector and the scripted engine that it starts.
class AppConnectorTest : public testing::Test {
  protected:
    static constexpr unsigned FRAME = 324;

    void launch(const std::string& script = "") {
        engine_.follow(script);
        connector_.launch(SCRIPTED_ENGINE, engine_.settings());
    }

    ReadResult read(unsigned size, unsigned timeout) {
        ReadResult result{-1, std::string(size, '-')};
        result.status = connector_.read(result.block.data(), size, timeout);
        return result;
    }

    void write(const std::vector<char>& block) {
        EXPECT_EQ(connector_.write(block.data(), static_cast<unsigned>(block.size())), 0);
    }

    // The text of the connector's error in an action that meets a failing system call.
    template <typename Action>
    std::string errorWhen(faults::Call call, int error, Action action, int skip = 0) {
        faults::failNext(call, error, {.skip = skip});
        return errorOf<AppConnectorError>(action);
    }

    pid_t engineId() {
        EXPECT_TRUE(engine_.hasLogged("start"));
        return engine_.pids().back();
    }

    ScriptedEngine engine_{"mmse"};
    AppConnector connector_;
};

#endif
