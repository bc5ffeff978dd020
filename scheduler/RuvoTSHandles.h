#pragma once

#include "runtime/platform/Export.h"

#include <cstdint>

namespace RuvoService {

// The process-wide source of task handles. Each one is drawn from a generator
// that is seeded with the one before; the generator runs through all numbers
// from 0 to 2^31 - 1 before it comes to one again. It is salted once a process,
// so that a handle of an earlier life of the service means nothing to this one.
// Any thread.
class VORN_EXPORT RuvoTSHandles {
public:
    static std::int32_t draw();
    // What draw() gives instead; null brings the generator back.
    static void setDrawForTest(std::int32_t (*draw)());

    // The number that a generator of this salt gives first after `seed`.
    static std::int32_t after(std::int32_t seed, std::uint32_t salt);
};

// The process-wide count of tasks that were made; gives each its number.
VORN_EXPORT std::uint64_t countTask();

// 16 hexadecimal digits that no other task of this machine has, `number` being
// the task's own, and that nobody can guess.
VORN_EXPORT std::uint64_t identityOf(std::uint64_t number);

}  // namespace RuvoService
