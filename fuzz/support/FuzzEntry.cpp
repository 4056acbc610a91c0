// The functions that libFuzzer calls, around the run() of a target.
#include "support/FuzzTarget.h"
#include "support/Limits.h"
#include <vxunpack/Base.h>

#include <cstdio>
#include <cstdlib>
#include <tbb/global_control.h>

namespace Quillmoran::Fuzz {

void require(bool condition, const char* text)
{
    if (condition)
        return;
    std::fprintf(stderr, "ERROR: %s\n", text);
    std::abort();
}

} // namespace Quillmoran::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace Quillmoran;
    // One thread, so that an input always executes the same code.
    static const tbb::global_control oneThread(tbb::global_control::max_allowed_parallelism, 1);
    const Fuzz::Limits limits(size);
    std::uint64_t samples = 0;
    try {
        samples = Fuzz::run({data, size});
    } catch (const Error&) {
        // the outcome of most inputs
    }
    limits.check(samples);
    return 0;
}
