// SPDX-License-Identifier: MIT
#include "hermetic_test.h"

#include <gtest/gtest.h>

namespace {

// Linked into a program of tests: none of them leaves a descriptor or a child process. It looks
// when the fixture and all its members are gone.
class LeavesNothing : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override { before_ = openDescriptors(); }
    void OnTestEnd(const testing::TestInfo& /*test*/) override {
        EXPECT_EQ(openDescriptors(), before_) << "descriptors left open or closed";
        EXPECT_FALSE(hasChildren()) << "a child process is left";
    }

    std::set<int> before_;
};

[[maybe_unused]] const bool listening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new LeavesNothing);
    return true;
}();

}  // namespace
