// ruvobench: measures the real daemon and, in the same run, bare servers of the
// same shape. docs/benchmarks.md says what each figure means.

#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Report.h"

#include <CLI/CLI.hpp>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>

namespace RuvoBench {
namespace {

constexpr int kQuickRounds = 3;

// 10,000 connections need as many descriptors, here and in the servers.
void allowManyDescriptors() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

void findPrograms(Settings& settings) {
    const auto own = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const char* const given = std::getenv("RUVO_BIN");
    settings.programs = given != nullptr ? given : (own.parent_path() / "bin").string();
    settings.bareProgram = (own / "ruvobare").string();
}

void listFamilies() {
    for (const auto* family : FigureFamily::all()) {
        std::cout << family->name() << "  " << family->what() << '\n';
    }
}

// True when each name that was asked for begins some family's, or the reverse.
bool knowsAll(const std::vector<std::string>& names) {
    const auto families = FigureFamily::all();
    return std::all_of(names.begin(), names.end(), [&families](const std::string& name) {
        Settings one;
        one.only = {name};
        const bool known = std::any_of(families.begin(), families.end(), [&one](const auto* f) {
            return one.wants(f->name());
        });
        if (!known) std::cerr << "There is no benchmark " << name << "; --list names them\n";
        return known;
    });
}

int measureAll(const Settings& settings) {
    allowManyDescriptors();
    const bool raised = raisePriority();
    Report report(settings, raised, std::cout);
    for (const auto* family : FigureFamily::all()) {
        if (!settings.wants(family->name())) continue;
        try {
            family->run(settings, [&report](const Figure& figure) { report.add(figure); });
        } catch (const std::exception& error) {
            report.addFailure(family->name(), error.what());
        }
    }
    report.finish();
    return report.failed() ? 1 : 0;
}

int run(int argc, char** argv) {
    Settings settings;
    CLI::App options("Measures the daemon beside bare code of the same shape", "bench");
    auto* const rounds =
        options.add_option("--rounds", settings.rounds, "rounds of each figure (default 5)")
            ->check(CLI::Range(1, 1000));
    options.add_option("--only", settings.only, "only these figures: a name or how names begin");
    options.add_flag("--quick", settings.quick, "shorter and fewer rounds: about a minute");
    options.add_flag("--json", settings.json, "one JSON object instead of the table");
    options.add_flag("--list", settings.list, "names the families of figures");
    try {
        options.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return options.exit(error) == 0 ? 0 : 2;
    }
    if (settings.list) {
        listFamilies();
        return 0;
    }
    if (settings.quick && rounds->count() == 0) settings.rounds = kQuickRounds;
    if (!knowsAll(settings.only)) return 2;
    findPrograms(settings);
    return measureAll(settings);
}

}  // namespace
}  // namespace RuvoBench

int main(int argc, char** argv) {
    try {
        return RuvoBench::run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "bench: " << error.what() << '\n';
        return 1;
    }
}
