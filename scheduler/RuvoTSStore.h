#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/FreshFile.h"
#include "runtime/platform/OsError.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace RuvoService {

// The file in which the tasks outlive the service: "RuvoTSEngineExecTasks.dat"
// in the folder of temporary files. It is always written whole, under another
// name, flushed to the disk, and then takes the old one's place in one step, which
// is flushed as well; the old one becomes ".bak". So at every moment there is a
// ".dat" with either all of the old tasks or all of the new. When it cannot be
// written, the old one stays; that is logged at level 2 when it begins, when its
// cause changes and when it is over. One thread at a time.
class VORN_EXPORT RuvoTSStore {
public:
    struct Names {
        std::string current;   // .dat
        std::string fresh;     // .tmp
        std::string previous;  // .bak
    };

    // The folder is the variable "TEMP"; without it, or when it is empty, names
    // are relative to the working directory. Looked up at each call.
    static std::string inTemporaryFolder(const std::string& name);
    static Names names();

    // Begins a new store. False when there can be none now.
    bool begin();
    // What is appended to the buffer becomes part of the store; settle() may be
    // called after each append.
    std::string& buffer() { return buffer_; }
    void settle();
    // Makes the new store the store. False: it is the old one still.
    bool finish();
    // After an exception since begin(): as a failing disk.
    void abandon(const char* reason) noexcept;
    // What of the last store that was begun is not on the disk. Its name alone: it
    // has the old one's place, but a system that stops may not know of that.
    enum class Lack { Nothing, Name, All };
    Lack lack() const { return lack_; }
    // Puts the name there, if nothing else is lacking. False: it could not.
    bool flushName();

    // Gives each line of a store to `visit`, without its "\n". False, with the
    // reason, when there is a file that cannot be read to its end, or that others
    // may have written (VornPlatform::OwnFile); a missing one is an empty one. False
    // as well, after all other lines, when one of more than longestLine() bytes was
    // left out: who then wrote the store anew would lose it.
    static bool read(const std::string& file, const std::function<void(std::string_view)>& visit,
                     std::string& reason);
    // What the longest task that "ruvod.limits" lets in takes; never less than
    // with their defaults, so that lower limits drop no task that was let in.
    static std::size_t longestLine();

private:
    void note(Lack lack, const std::string& condition);

    Names names_;
    VornPlatform::FreshFile file_;
    VornPlatform::OsError error_;  // the first one since begin()
    std::string buffer_;
    Lack lack_ = Lack::Nothing;
    std::string condition_;  // why; empty also when there was no memory to keep it
};

}  // namespace RuvoService
