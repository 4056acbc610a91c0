// Small inputs of every kind and form that the readers support. Fuzzing starts from them, and DamageTest
// damages them.
#pragma once

#include "support/SubblockEncoder.h"

#include <span>

namespace Quillmoran::Testing {

struct SampleFile
{
    const char* target; // the fuzz target that reads it
    const char* name;
    Bytes (*make)();
    int slowness = 1; // how many times longer than for other files a reader takes to open it
};

std::span<const SampleFile> sampleFiles();

} // namespace Quillmoran::Testing
