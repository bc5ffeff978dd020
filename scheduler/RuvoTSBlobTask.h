#pragma once

#include "runtime/platform/Export.h"
#include "scheduler/RuvoTSTask.h"

#include <cstdint>
#include <optional>
#include <string>

namespace RuvoService {

// A task that keeps a block of bytes. A run does nothing but pass through the
// states: clients that wait for its events learn that the time has come and
// fetch the bytes.
class VORN_EXPORT RuvoTSBlobTask final : public RuvoTSTask {
public:
    // Takes the bytes over. Use RuvoTSTask::make.
    RuvoTSBlobTask(const std::string& name, RuvoTSSeconds nextTime, std::uint32_t frequency,
                   std::string blob);
    ~RuvoTSBlobTask() override;

    std::string serialize() const override;
    int performTask() override;
    std::optional<std::int32_t> runtaskonsystem() override;
    std::string_view kind() const override { return "RuvoTSBlobTask"; }

    const std::string& getBlob() const { return blob_; }          // never changes
    // A name that is stored and otherwise not used: there is no such file.
    const std::string& getFileName() const { return fileName_; }  // never changes

private:
    const std::string blob_;
    const std::string fileName_;
};

}  // namespace RuvoService
