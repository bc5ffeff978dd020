#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace RuvoBench {

// What the command line asked for. Read-only once the run has begun.
struct Settings {
    int rounds = 5;
    bool quick = false;
    bool json = false;
    bool list = false;
    std::vector<std::string> only;  // names of figures or of families; empty: all
    std::string programs;           // the folder with the daemon
    std::string bareProgram;        // path of the bare servers' program

    // How long one side of one round is loaded.
    std::chrono::milliseconds slice() const {
        return std::chrono::milliseconds(quick ? 100 : 300);
    }
    // True when a figure of this name, or any figure of the family of this
    // name, is to be measured.
    bool wants(std::string_view name) const;
};

}  // namespace RuvoBench
