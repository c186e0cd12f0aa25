// SPDX-License-Identifier: MIT
// Files that are there whole or not at all: written under another name, then renamed. For jobs in
// the background, since disks may be slow.
#ifndef TOLVANEV_NODE_WHOLE_FILE_H
#define TOLVANEV_NODE_WHOLE_FILE_H

#include <string>
#include <string_view>

namespace node {

enum class Durable { NO, YES };  // YES: also when the power fails right behind it

// Both names are in one folder. Returns the system's text for what went wrong, empty = nothing;
// then there is no temporary file.
std::string writeWhole(const std::string& temporary, const std::string& path,
                       std::string_view content, Durable durable);

}  // namespace node

#endif
