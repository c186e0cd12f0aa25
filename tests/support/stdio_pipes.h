// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_TESTS_STDIO_PIPES_H
#define TOLVANEV_TESTS_STDIO_PIPES_H

#include <string>
#include <string_view>

#include "scoped_descriptor.h"

// While it lives, standard input and output are pipes, and the test stands at their other ends as
// the ROS node does. What nobody took from the output goes to the real one in the end, so that a
// failing test is heard.
class StdioPipes {
  public:
    StdioPipes();
    ~StdioPipes();

    // Puts text into standard input.
    void say(std::string_view text);
    // Ends standard input.
    void hangUp() { input_.reset(); }
    // What was written to standard output since the last look, without waiting.
    std::string output();

  private:
    ScopedDescriptor saved_input_;
    ScopedDescriptor saved_output_;
    ScopedDescriptor input_;   // our end of standard input
    ScopedDescriptor output_;  // our end of standard output
};

#endif
