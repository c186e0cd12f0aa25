// SPDX-License-Identifier: MIT
// The bridge's command line, as the node is given it behind "--". The node starts it as it stands;
// it reads from it which files have to be there, since a bridge without its engine shows that only
// by a sudden end.
#ifndef TOLVANEV_NODE_BRIDGE_COMMAND_H
#define TOLVANEV_NODE_BRIDGE_COMMAND_H

#include <string>
#include <vector>

namespace node {

class BridgeCommand {
  public:
    // The program and its options; not empty.
    explicit BridgeCommand(std::vector<std::string> words) : words_(std::move(words)) {}

    const std::vector<std::string>& words() const { return words_; }
    // The value of an option, by its long name and its letter; of one given twice the last.
    std::string option(const std::string& name, char letter, const std::string& initial) const;
    std::string engine() const { return option("binary", 'b', "./Tolvanev"); }
    std::string mmseSettings() const { return option("mmse", 'm', "./Tolvanev.mmse.ini"); }
    std::string vadSettings() const { return option("vad", 'v', "./Tolvanev.vad.ini"); }

    // What is wrong with the files at this moment, in one line; empty when the bridge can start.
    std::string problem() const;

  private:
    std::vector<std::string> words_;
};

// The path of a program as a shell finds it, by PATH when it has no slash; empty if nowhere.
std::string findProgram(const std::string& name);

}  // namespace node

#endif
