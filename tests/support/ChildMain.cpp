#include "tests/support/ChildMain.h"

#include "runtime/platform/Environment.h"
#include "runtime/platform/ProgramSetup.h"
#include "tests/support/TestSupport.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {
namespace {

using Arguments = std::vector<std::string>;

constexpr std::chrono::minutes kLongestLife{1};

// Appears under its name only when it is complete.
void writeWhole(const std::string& file, std::string_view content) {
    writeFile(file + ".part", content);
    std::filesystem::rename(toPath(file + ".part"), toPath(file));
}

int readInput(const std::string& file) {
    std::size_t count = 0;
    while (std::getchar() != EOF) ++count;
    std::printf("text\n");
    std::fflush(stdout);
    std::fprintf(stderr, "text\n");
    writeWhole(file, std::to_string(count));
    return 0;
}

int listFolder(const std::string& folder, const std::string& file) {
    std::string names;
    for (const auto& entry : std::filesystem::directory_iterator(toPath(folder))) {
        names += toText(entry.path().filename()) + '\n';
    }
    writeWhole(file, names);
    return 0;
}

int waitFor(const std::string& file) {
    return waitUntil([&] { return exists(file); }, kLongestLife) ? 0 : 1;
}

int touch(const std::string& file, const std::string& done) {
    const int status = waitFor(file);
    if (status == 0) writeWhole(done, "");
    return status;
}

int runChild(const Arguments& a) {
    const std::string command = a.empty() ? "" : a[0];
    if (command == "exit") return std::atoi(a.at(1).c_str());
    if (command == "until") return waitFor(a.at(1));
    if (command == "read") return readInput(a.at(1));
    if (command == "list") return listFolder(a.at(1), a.at(2));
    if (command == "args") {
        std::string lines;
        for (std::size_t i = 2; i < a.size(); ++i) lines += a[i] + '\n';
        writeWhole(a.at(1), lines);
        return 0;
    }
    if (command == "touch") return touch(a.at(1), a.at(2));
    if (command == "tell") {
        writeWhole(a.at(1), "");
        return touch(a.at(2), a.at(3));
    }
    if (command == "copy") {
        writeWhole(a.at(2), readFile(a.at(1)));
        return 0;
    }
    if (command == "env") {
        writeWhole(a.at(2), VornPlatform::getEnv(a.at(1)).value_or("(not set)"));
        return 0;
    }
    if (command == "stderr") {
        std::fputs(a.at(1).c_str(), stderr);
        return 0;
    }
    std::fprintf(stderr, "unknown command of a test child: %s\n", command.c_str());
    return 99;
}

}  // namespace

std::string childCommand(std::string_view arguments) {
    return inQuotes(VornPlatform::executablePath()) + " --child " + std::string(arguments);
}

std::string inQuotes(std::string_view text) { return '"' + std::string(text) + '"'; }

}  // namespace TestSupport

int main(int argc, char** argv) {
    if (argc > 1 && std::string_view(argv[1]) == "--child") {
        auto arguments = VornPlatform::programArguments(argc, argv);
        arguments.erase(arguments.begin());
        return TestSupport::runChild(arguments);
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
