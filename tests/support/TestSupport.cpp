#include "tests/support/TestSupport.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace TestSupport {
namespace {

constexpr std::chrono::milliseconds kLongestPause{20};

}  // namespace

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + bound;
    std::chrono::milliseconds pause{1};
    while (!condition()) {
        if (Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(2 * pause, kLongestPause);
    }
    return true;
}

std::chrono::steady_clock::duration timeOf(const std::function<void()>& work) {
    const auto begun = std::chrono::steady_clock::now();
    work();
    return std::chrono::steady_clock::now() - begun;
}

bool oneTakesLessThan(std::chrono::milliseconds bound,
                      const std::function<std::chrono::steady_clock::duration()>& attempt) {
    return waitUntil([&] { return attempt() < bound; });
}

bool mostSucceed(const std::function<bool()>& attempt) {
    constexpr int kNeeded = 3;
    constexpr int kTries = 5;
    int successes = 0;
    for (int left = kTries; successes < kNeeded && left >= kNeeded - successes; --left) {
        successes += attempt() ? 1 : 0;
    }
    return successes == kNeeded;
}

bool mostTakeLessThan(std::chrono::milliseconds bound,
                      const std::function<std::chrono::steady_clock::duration()>& attempt) {
    return mostSucceed([&] { return attempt() < bound; });
}

std::filesystem::path toPath(std::string_view text) {
    return std::u8string(text.begin(), text.end());
}

std::string toText(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

TemporaryDirectory::TemporaryDirectory() {
    static std::random_device random;
    const auto base = std::filesystem::temp_directory_path();
    do {
        path_ = base / ("ruvo-test-" + std::to_string(random()) + '-' + std::to_string(random()));
    } while (!std::filesystem::create_directory(path_));
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryDirectory::file(std::string_view name) const {
    return toText(path_ / toPath(name));
}

std::string readFile(const std::string& path) {
    std::ifstream file(toPath(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, std::string_view content) {
    std::ofstream file(toPath(path), std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path);
}

bool exists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(toPath(path), ignored);
}

WorkingDirectory::WorkingDirectory(const std::string& path)
    : previous_(std::filesystem::current_path()) {
    std::filesystem::current_path(toPath(path));
}

WorkingDirectory::~WorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(previous_, ignored);
}

}  // namespace TestSupport
