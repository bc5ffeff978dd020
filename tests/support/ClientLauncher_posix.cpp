#include "tests/support/ClientLauncher.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace TestSupport {
namespace {

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string textOf(const std::string& file) {
    std::string text = readFile(file);
    std::erase(text, '\r');
    return text;
}

}  // namespace

bool isClientEmulated() { return !environment("RUVO_CLIENT_EMULATOR").empty(); }

std::string clientPath(const std::string& path) { return isClientEmulated() ? "Z:" + path : path; }

ClientProcess::ClientProcess(const std::vector<std::string>& line) {
    std::vector<char*> words;
    for (const std::string& word : line) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
    const int flags = O_WRONLY | O_CREAT | O_APPEND;
    ::posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, 1, directory_.file("output").c_str(), flags, 0600);
    ::posix_spawn_file_actions_addopen(&files, 2, directory_.file("errors").c_str(), flags, 0600);
    // A session of its own, so that all that it starts can be ended with it.
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    const int failed =
        ::posix_spawnp(&id_, words[0], &files, &attributes, words.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
    if (failed != 0) throw std::runtime_error(line[0] + ": " + std::strerror(failed));
}

ClientProcess::~ClientProcess() {
    ::kill(-id_, SIGKILL);
    waitForExit();
}

std::optional<int> ClientProcess::waitForExit(std::chrono::milliseconds bound) {
    waitUntil(
        [this] {
            int raw = 0;
            if (status_ || ::waitpid(id_, &raw, WNOHANG) != id_) return status_.has_value();
            status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
            return true;
        },
        bound);
    return status_;
}

void ClientProcess::signal(int number) const {
    if (!status_) ::kill(id_, number);
}

std::string ClientProcess::output() const { return textOf(directory_.file("output")); }
std::string ClientProcess::errors() const { return textOf(directory_.file("errors")); }

bool ClientProcess::outputs(const std::string& text) const {
    return waitUntil([&] { return output().find(text) != std::string::npos; });
}

bool ClientProcess::complains(const std::string& text) const {
    return waitUntil([&] { return errors().find(text) != std::string::npos; });
}

std::vector<std::string> ruvoctlLine(const std::vector<std::string>& arguments) {
    const std::string folder = environment("RUVO_CLIENT_BIN");
    if (folder.empty()) throw std::runtime_error("RUVO_CLIENT_BIN names the client's folder");
    std::vector<std::string> line;
    if (isClientEmulated()) line.push_back(environment("RUVO_CLIENT_EMULATOR"));
    line.push_back(folder + "/ruvoctl");
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

ClientRun runProgram(const std::vector<std::string>& line) {
    ClientProcess process(line);
    ClientRun run;
    run.status = process.waitForExit().value_or(-1);
    run.output = process.output();
    run.errors = process.errors();
    return run;
}

ClientRun runRuvoctl(const std::vector<std::string>& arguments) {
    return runProgram(ruvoctlLine(arguments));
}

}  // namespace TestSupport
