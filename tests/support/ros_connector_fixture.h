// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_ROS_CONNECTOR_FIXTURE_H
#define TOLVANEV_TESTS_ROS_CONNECTOR_FIXTURE_H

#include <gtest/gtest.h>

#include <string>

#include "ROSConnector.h"
#include "error_text.h"
#include "faults.h"
#include "frames.h"
#include "hermetic_test.h"
#include "log_capture.h"
#include "stdio_pipes.h"

// The link with its steps open to the tests.
class OpenROSConnector : public ROSConnector {
  public:
    using ROSConnector::processData;
    using ROSConnector::read;
    using ROSConnector::readData;
    using ROSConnector::write;
    using ROSConnector::writeData;
};

// A link, and the node at the other ends of its pipes.
class ROSConnectorTest : public testing::Test {
  protected:
    ROSConnectorTest() {
        connector_.initialize();
        faults::clear();  // laying the pipes took some calls
    }

    // The node says this; one service step takes it.
    void processing(const std::string& text) {
        node_.say(text);
        connector_.process();
    }

    bool playing() const { return connector_.getPlaySoundState(); }
    void send(const std::string& block) { connector_.addSendData(bytesOf(block)); }

    std::string errorOfProcess() {
        return errorOf<ROSConnectorError>([this] { connector_.process(); });
    }

    StdioPipes node_;
    LogCapture log_{logINFO};
    OpenROSConnector connector_;
};

#endif
